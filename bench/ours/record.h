#pragma once
#include "base/string.h"
#include "driver/driver.h"
#include "driver/stamp.h"

namespace bench {

/// What calls of the scenarios with records carry. As a stamp: whole and in place, or the program ends.
struct Record {
    std::uint64_t number = 0;
    std::uint64_t check = 0;
    fn::String name;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    double scale = 0;
};

inline Record recordOf(std::uint64_t number)
{
    const auto size = static_cast<std::uint32_t>(number & 0xffff);
    return { number, ~number, "a name of some length", size, size + 1, static_cast<double>(size) + 0.5 };
}

inline std::uint64_t numberOf(const Record& record)
{
    const auto expected = recordOf(record.number);
    if (record.check != expected.check || record.name != expected.name || record.width != expected.width
        || record.height != expected.height || record.scale != expected.scale)
        fail("a broken record arrived");
    return record.number;
}

} // namespace bench
