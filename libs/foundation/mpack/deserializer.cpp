#include "foundation/mpack/deserializer.h"
#include "base/exceptions.h"
#include "foundation/io/limited_input_stream.h"
#include "foundation/mpack/codes.h"
#include "foundation/mpack/detail/timestamp_form_private.h"
#include "foundation/value_map.h"
#include <algorithm>

namespace fn::mpack {
namespace {

// Most elements that memory is reserved for: a container may lie about its size, and grows beyond this as elements come.
constexpr std::size_t mostElementsReserved = 256;

template <std::unsigned_integral T> T readNumber(InputStream& stream)
{
    T number;
    stream.readExactly(&number, sizeof number);
    return bigEndian(number);
}

template <std::signed_integral T> T readNumber(InputStream& stream)
{
    return static_cast<T>(readNumber<std::make_unsigned_t<T>>(stream));
}

[[noreturn]] void throwMalformed(const InputStream& stream, const char* message)
{
    throw with(DataFormatException(message), DetailInfo { fmt::format("Offset: {}", stream.position()) });
}

} // namespace

std::optional<Value> Deserializer::deserialize()
{
    std::uint8_t code = 0;
    if (_stream.read(&code, 1) == 0) return std::nullopt;
    return read(code, 0);
}

void Deserializer::requireBytes(std::uint64_t size) const
{
    if (_stream.holds(size)) [[likely]]
        return;
    const auto left = _stream.remaining();
    if (left && *left < size) {
        throw with(EndOfStreamException("Unexpected end of stream"),
            DetailInfo { fmt::format("Offset: {}, announced bytes: {}, left: {}", _stream.position(), size, *left) });
    }
}

Value Deserializer::read(int depth) { return read(readNumber<std::uint8_t>(_stream), depth); }

Value Deserializer::read(std::uint8_t code, int depth)
{
    if (code < code::FixMap) return code;
    if (code >= code::NegativeFixInt) return static_cast<std::int8_t>(code);
    if (code < code::FixArray) return readMap(code - code::FixMap, depth);
    if (code < code::FixStr) return readArray(code - code::FixArray, depth);
    if (code < code::Nil) return readText(code - code::FixStr);
    switch (code) {
    case code::Nil: return {};
    case code::False: return false;
    case code::True: return true;
    case code::Bin8: return readBytes(readNumber<std::uint8_t>(_stream));
    case code::Bin16: return readBytes(readNumber<std::uint16_t>(_stream));
    case code::Bin32: return readBytes(readNumber<std::uint32_t>(_stream));
    case code::Ext8: return readExtension(readNumber<std::uint8_t>(_stream));
    case code::Ext16: return readExtension(readNumber<std::uint16_t>(_stream));
    case code::Ext32: return readExtension(readNumber<std::uint32_t>(_stream));
    case code::Float32: return std::bit_cast<float>(readNumber<std::uint32_t>(_stream));
    case code::Float64: return std::bit_cast<double>(readNumber<std::uint64_t>(_stream));
    case code::UInt8: return readNumber<std::uint8_t>(_stream);
    case code::UInt16: return readNumber<std::uint16_t>(_stream);
    case code::UInt32: return readNumber<std::uint32_t>(_stream);
    case code::UInt64: return readNumber<std::uint64_t>(_stream);
    case code::Int8: return readNumber<std::int8_t>(_stream);
    case code::Int16: return readNumber<std::int16_t>(_stream);
    case code::Int32: return readNumber<std::int32_t>(_stream);
    case code::Int64: return readNumber<std::int64_t>(_stream);
    case code::FixExt1: return readExtension(1);
    case code::FixExt2: return readExtension(2);
    case code::FixExt4: return readExtension(4);
    case code::FixExt8: return readExtension(8);
    case code::FixExt16: return readExtension(16);
    case code::Str8: return readText(readNumber<std::uint8_t>(_stream));
    case code::Str16: return readText(readNumber<std::uint16_t>(_stream));
    case code::Str32: return readText(readNumber<std::uint32_t>(_stream));
    case code::Array16: return readArray(readNumber<std::uint16_t>(_stream), depth);
    case code::Array32: return readArray(readNumber<std::uint32_t>(_stream), depth);
    case code::Map16: return readMap(readNumber<std::uint16_t>(_stream), depth);
    case code::Map32: return readMap(readNumber<std::uint32_t>(_stream), depth);
    default: throwMalformed(_stream, "Byte that begins no MessagePack value");
    }
}

[[gnu::flatten]] Value Deserializer::readText(std::uint32_t size) { return _stream.readString(size); }

Value Deserializer::readBytes(std::uint32_t size) { return _stream.readByteArray(size); }

/// Checks the announced number of values before memory is reserved for them. Each value takes a byte at least.
void Deserializer::enterContainer(std::uint64_t values, int depth)
{
    if (depth >= maxDepth) throwMalformed(_stream, "Value is nested too deeply");
    if (values > _valuesLeft) throwMalformed(_stream, "Containers hold too many values");
    _valuesLeft -= values;
    requireBytes(values);
}

Value Deserializer::readArray(std::uint32_t count, int depth)
{
    enterContainer(count, depth);
    Value::Array elements;
    elements.reserve(std::min<std::size_t>(count, mostElementsReserved));
    for (std::uint32_t i = 0; i < count; ++i) elements.push_back(read(depth + 1));
    return elements;
}

Value Deserializer::readMap(std::uint32_t count, int depth)
{
    enterContainer(std::uint64_t(2) * count, depth);
    Value map(Value::MAP);
    if (count == 0) return map;
    auto& entries = map.mutableEntries();
    entries.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        auto key = read(depth + 1);
        entries.set(std::move(key), read(depth + 1));
    }
    return map;
}

Value Deserializer::readExtension(std::uint32_t size)
{
    const auto type = readNumber<std::int8_t>(_stream);
    requireBytes(size);
    if (type == timestampType) return readTimestamp(size, _stream);
    if (!_hook) {
        _stream.skip(size);
        return {};
    }
    LimitedInputStream body(_stream, size);
    auto value = _hook->deserializeValue(type, size, body);
    body.finish();
    return value;
}

} // namespace fn::mpack
