#pragma once
#include "base/byte_array.h"
#include "driver/driver.h"
#include "driver/stamp.h"

namespace bench {

inline fn::ByteArray stamped(std::uint64_t number, std::size_t size)
{
    fn::ByteArray body;
    body.resizeUninitialized(size);
    stamp({ body.mutableData(), size }, number);
    return body;
}

/// For a `then()`: a measurement with a failed step must not look like a fast one.
inline auto failing(const char* step)
{
    return [step](std::exception_ptr exception) { failWith(step, exception); };
}

} // namespace bench
