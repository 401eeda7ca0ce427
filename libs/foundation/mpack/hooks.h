#pragma once
#include "foundation/io/input_stream.h"
#include "foundation/io/output_stream.h"
#include "foundation/value.h"
#include <cstdint>

namespace fn::mpack {

/// Depth of containers that writers and readers take; one constant for MessagePack and JSON.
inline constexpr int maxDepth = 512;

/// What a hook answers for a value that is to be written as nil. No extension has this type: MessagePack keeps the negative types.
inline constexpr std::int8_t typeNil = -2;

/// Writes values that MessagePack has no type for as extension values.
class FN_EXPORT ValueSerializer {
public:
    /// The extension type, `typeNil`, or -1 for a value that is to be written as plain MessagePack. Called for boxed values
    /// and objects only.
    virtual std::int8_t typeForValue(const Value& value) = 0;
    /// Writes exactly `serializedLengthForValue()` bytes.
    virtual void serializeValue(const Value& value, OutputStream& stream) = 0;
    /// The number of bytes that `serializeValue()` writes. Default: writes the value once, to count them.
    virtual std::uint32_t serializedLengthForValue(const Value& value);
    virtual ~ValueSerializer();
};

/// Makes values of extension values.
class FN_EXPORT ValueDeserializer {
public:
    /// `stream` holds exactly `size` bytes; bytes left unread are skipped. Not called for timestamps (type -1).
    /// A hook that reads further extension values from `stream` must bound how deep they nest.
    virtual Value deserializeValue(std::int8_t type, std::uint32_t size, InputStream& stream) = 0;
    virtual ~ValueDeserializer();
};

} // namespace fn::mpack
