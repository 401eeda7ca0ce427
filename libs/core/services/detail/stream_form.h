#pragma once
#include "base/exceptions.h"
#include "foundation/mpack/deserializer.h"

namespace core::detail {

/// The next field of an object written as a sequence of MessagePack values; `fn::EndOfStreamException` naming it if the
/// stream has ended.
inline fn::Value nextField(fn::mpack::Deserializer& deserializer, const char* name)
{
    auto value = deserializer.deserialize();
    if (!value) {
        throw fn::with(
            fn::EndOfStreamException("Unexpected end of stream"), fn::DetailInfo { fn::String("Field: ") + name });
    }
    return std::move(*value);
}

} // namespace core::detail
