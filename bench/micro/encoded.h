#pragma once
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/mpack/serializer.h"

namespace bench {

inline fn::ByteArray encoded(const fn::Value& value)
{
    fn::ByteArray bytes;
    fn::ByteArrayOutputStream stream(bytes);
    fn::mpack::Serializer(stream).serialize(value);
    stream.flush();
    return bytes;
}

} // namespace bench
