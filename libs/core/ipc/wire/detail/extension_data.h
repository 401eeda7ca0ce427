#pragma once
#include "core/ipc/wire/message.h"
#include "core/services/fraction.h"
#include "core/services/typed_byte_array.h"
#include "foundation/io/input_stream.h"
#include "foundation/io/output_stream.h"
#include "foundation/value.h"

namespace ipc {

/// The data of an object extension is the ObjectId in 8 bytes, little-endian.
inline ObjectId readObjectId(fn::InputStream& stream)
{
    std::uint8_t bytes[sizeof(ObjectId)];
    stream.readExactly(bytes, sizeof(bytes));
    ObjectId objectId = 0;
    for (std::size_t i = 0; i < sizeof(bytes); ++i) objectId |= static_cast<ObjectId>(bytes[i]) << (8 * i);
    return objectId;
}

inline void writeObjectId(fn::OutputStream& stream, ObjectId objectId)
{
    std::uint8_t bytes[sizeof(ObjectId)];
    for (std::size_t i = 0; i < sizeof(bytes); ++i) bytes[i] = static_cast<std::uint8_t>(objectId >> (8 * i));
    stream.write(bytes, sizeof(bytes));
}

/// The value of any other extension; nil where nobody knows the type.
inline fn::Value readPlainExtension(std::int8_t type, fn::InputStream& stream)
{
    switch (type) {
    case extension::FRACTION: return core::Fraction::deserialize(stream);
    case extension::TYPED_BYTE_ARRAY: return core::TypedByteArray::deserialize(stream);
    default: return {};
    }
}

} // namespace ipc
