#include "foundation/mpack/serializer.h"
#include "base/exceptions.h"
#include "foundation/mpack/codes.h"
#include "foundation/mpack/detail/timestamp_form_private.h"
#include "foundation/value_map.h"
#include <limits>

namespace fn::mpack {
namespace {

template <std::unsigned_integral T> void writeCoded(OutputStream& stream, std::uint8_t code, T number)
{
    std::uint8_t bytes[1 + sizeof(T)] = { code };
    number = bigEndian(number);
    std::memcpy(bytes + 1, &number, sizeof number);
    stream.write(bytes, sizeof bytes);
}

template <typename T> bool fits(std::uint64_t number) noexcept { return number <= std::numeric_limits<T>::max(); }

void writeUnsigned(OutputStream& stream, std::uint64_t number)
{
    if (number < code::FixMap)
        stream.writeByte(static_cast<std::uint8_t>(number));
    else if (fits<std::uint8_t>(number))
        writeCoded(stream, code::UInt8, static_cast<std::uint8_t>(number));
    else if (fits<std::uint16_t>(number))
        writeCoded(stream, code::UInt16, static_cast<std::uint16_t>(number));
    else if (fits<std::uint32_t>(number))
        writeCoded(stream, code::UInt32, static_cast<std::uint32_t>(number));
    else
        writeCoded(stream, code::UInt64, number);
}

void writeNegative(OutputStream& stream, std::int64_t number)
{
    if (number >= -32)
        stream.writeByte(static_cast<std::uint8_t>(number));
    else if (std::in_range<std::int8_t>(number))
        writeCoded(stream, code::Int8, static_cast<std::uint8_t>(number));
    else if (std::in_range<std::int16_t>(number))
        writeCoded(stream, code::Int16, static_cast<std::uint16_t>(number));
    else if (std::in_range<std::int32_t>(number))
        writeCoded(stream, code::Int32, static_cast<std::uint32_t>(number));
    else
        writeCoded(stream, code::Int64, static_cast<std::uint64_t>(number));
}

void writeText(OutputStream& stream, std::string_view text)
{
    const auto size = text.size();
    if (size < 32)
        stream.writeByte(static_cast<std::uint8_t>(code::FixStr | size));
    else if (fits<std::uint8_t>(size))
        writeCoded(stream, code::Str8, static_cast<std::uint8_t>(size));
    else if (fits<std::uint16_t>(size))
        writeCoded(stream, code::Str16, static_cast<std::uint16_t>(size));
    else
        writeCoded(stream, code::Str32, static_cast<std::uint32_t>(size));
    stream.write(text);
}

void writeBytes(OutputStream& stream, const ByteArray& bytes)
{
    const auto size = bytes.size();
    if (fits<std::uint8_t>(size))
        writeCoded(stream, code::Bin8, static_cast<std::uint8_t>(size));
    else if (fits<std::uint16_t>(size))
        writeCoded(stream, code::Bin16, static_cast<std::uint16_t>(size));
    else
        writeCoded(stream, code::Bin32, static_cast<std::uint32_t>(size));
    stream.writeShared(bytes);
}

void beginExtension(OutputStream& stream, std::int8_t type, std::uint32_t size)
{
    switch (size) {
    case 1: stream.writeByte(code::FixExt1); break;
    case 2: stream.writeByte(code::FixExt2); break;
    case 4: stream.writeByte(code::FixExt4); break;
    case 8: stream.writeByte(code::FixExt8); break;
    case 16: stream.writeByte(code::FixExt16); break;
    default:
        if (fits<std::uint8_t>(size))
            writeCoded(stream, code::Ext8, static_cast<std::uint8_t>(size));
        else if (fits<std::uint16_t>(size))
            writeCoded(stream, code::Ext16, static_cast<std::uint16_t>(size));
        else
            writeCoded(stream, code::Ext32, size);
    }
    stream.writeByte(static_cast<std::uint8_t>(type));
}

} // namespace

void Serializer::serialize(const Value& value) { write(value, 0); }

void Serializer::serializeMap(std::span<const Field> fields)
{
    beginMap(fields.size());
    for (const auto& [key, value] : fields) {
        writeText(_stream, key);
        write(value, 1);
    }
}

void Serializer::write(const Value& value, int depth)
{
    switch (value.kind()) {
    case Value::Kind::Nil: _stream.writeByte(code::Nil); break;
    case Value::Kind::Bool: _stream.writeByte(value.toBool() ? code::True : code::False); break;
    case Value::Kind::Int: {
        const auto number = value.to<std::int64_t>();
        if (number < 0)
            writeNegative(_stream, number);
        else
            writeUnsigned(_stream, static_cast<std::uint64_t>(number));
        break;
    }
    case Value::Kind::UInt: writeUnsigned(_stream, value.to<std::uint64_t>()); break;
    case Value::Kind::Double: writeCoded(_stream, code::Float64, std::bit_cast<std::uint64_t>(value.toDouble())); break;
    case Value::Kind::String: writeText(_stream, value.string()); break;
    case Value::Kind::Bytes: writeBytes(_stream, value.byteArray()); break;
    case Value::Kind::Array:
        beginContainer(value.size(), false, depth);
        for (const auto& element : value.elements()) write(element, depth + 1);
        break;
    case Value::Kind::Map:
        beginContainer(value.size(), true, depth);
        for (const auto& [key, entry] : value.entries()) {
            write(key, depth + 1);
            write(entry, depth + 1);
        }
        break;
    case Value::Kind::Boxed:
    case Value::Kind::Object: writeExtension(value); break;
    }
}

void Serializer::beginContainer(std::size_t count, bool isMap, int depth)
{
    if (depth >= maxDepth) {
        throw with(
            DataFormatException("Value is nested too deeply"), DetailInfo { fmt::format("Levels: {}", maxDepth) });
    }
    if (!fits<std::uint32_t>(count)) throw DataFormatException("Container has too many elements");
    const auto values = std::uint64_t(isMap ? 2 : 1) * count;
    if (values > _valuesLeft) throw DataFormatException("Containers hold too many values");
    _valuesLeft -= values;
    const auto code16 = isMap ? code::Map16 : code::Array16;
    if (count < 16)
        _stream.writeByte(static_cast<std::uint8_t>((isMap ? code::FixMap : code::FixArray) | count));
    else if (fits<std::uint16_t>(count))
        writeCoded(_stream, code16, static_cast<std::uint16_t>(count));
    else
        writeCoded(_stream, static_cast<std::uint8_t>(code16 + 1), static_cast<std::uint32_t>(count));
}

void Serializer::writeExtension(const Value& value)
{
    if (const auto type = _hook ? _hook->typeForValue(value) : plainType; type == typeNil) {
        _stream.writeByte(code::Nil);
    } else if (type != plainType) {
        beginExtension(_stream, type, _hook->serializedLengthForValue(value));
        _hook->serializeValue(value, _stream);
    } else if (value.isBoxed<Timestamp>()) {
        const auto timestamp = value.boxed<Timestamp>();
        beginExtension(_stream, timestampType, timestampBytes(timestamp));
        writeTimestamp(timestamp, _stream);
    } else {
        throw with(DataFormatException("Unsupported value type"), DetailInfo { value.detailInfo() });
    }
}

} // namespace fn::mpack
