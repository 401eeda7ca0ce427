#include "foundation/mpack/writer.h"
#include "base/exceptions.h"
#include "foundation/mpack/hooks.h"
#include <bit>
#include <fmt/format.h>
#include <limits>
#include <utility>

namespace fn::mpack {
namespace {

template <typename T> void writeCoded(OutputStream& stream, std::uint8_t code, T number)
{
    std::uint8_t bytes[1 + sizeof(T)] = { code };
    number = bigEndian(number);
    std::memcpy(bytes + 1, &number, sizeof number);
    stream.write(bytes, sizeof bytes);
}

template <typename T> bool fits(std::uint64_t number) noexcept { return number <= std::numeric_limits<T>::max(); }

/// A length in 8, 16 or 32 bits behind the code of its form: the codes of the three follow one another.
void writeLength(OutputStream& stream, std::uint8_t code8, std::size_t size)
{
    if (fits<std::uint8_t>(size))
        writeCoded(stream, code8, static_cast<std::uint8_t>(size));
    else if (fits<std::uint16_t>(size))
        writeCoded(stream, static_cast<std::uint8_t>(code8 + 1), static_cast<std::uint16_t>(size));
    else
        writeCoded(stream, static_cast<std::uint8_t>(code8 + 2), static_cast<std::uint32_t>(size));
}

} // namespace

void Writer::writeUnsigned(std::uint64_t number)
{
    if (fits<std::uint32_t>(number))
        writeLength(_stream, code::UInt8, number);
    else
        writeCoded(_stream, code::UInt64, number);
}

void Writer::writeNegative(std::int64_t number)
{
    if (number >= -32)
        _stream.writeByte(static_cast<std::uint8_t>(number));
    else if (std::in_range<std::int8_t>(number))
        writeCoded(_stream, code::Int8, static_cast<std::uint8_t>(number));
    else if (std::in_range<std::int16_t>(number))
        writeCoded(_stream, code::Int16, static_cast<std::uint16_t>(number));
    else if (std::in_range<std::int32_t>(number))
        writeCoded(_stream, code::Int32, static_cast<std::uint32_t>(number));
    else
        writeCoded(_stream, code::Int64, static_cast<std::uint64_t>(number));
}

void Writer::writeDouble(double value) { writeCoded(_stream, code::Float64, std::bit_cast<std::uint64_t>(value)); }

void Writer::writeLongText(std::string_view text)
{
    writeLength(_stream, code::Str8, text.size());
    _stream.write(text);
}

void Writer::writeBytes(const ByteArray& bytes)
{
    writeLength(_stream, code::Bin8, bytes.size());
    _stream.writeShared(bytes);
}

void Writer::beginExtension(std::int8_t type, std::uint32_t size)
{
    switch (size) {
    case 1: _stream.writeByte(code::FixExt1); break;
    case 2: _stream.writeByte(code::FixExt2); break;
    case 4: _stream.writeByte(code::FixExt4); break;
    case 8: _stream.writeByte(code::FixExt8); break;
    case 16: _stream.writeByte(code::FixExt16); break;
    default: writeLength(_stream, code::Ext8, size);
    }
    _stream.writeByte(static_cast<std::uint8_t>(type));
}

void Writer::begin(std::size_t count, bool isMap)
{
    if (_depth >= maxDepth) {
        throw with(
            DataFormatException("Value is nested too deeply"), DetailInfo { fmt::format("Levels: {}", maxDepth) });
    }
    if (!fits<std::uint32_t>(count)) throw DataFormatException("Container has too many elements");
    const auto values = std::uint64_t(isMap ? 2 : 1) * count;
    if (values > _valuesLeft) throw DataFormatException("Containers hold too many values");
    _valuesLeft -= values;
    ++_depth;
    const auto code16 = isMap ? code::Map16 : code::Array16;
    if (count < 16)
        _stream.writeByte(static_cast<std::uint8_t>((isMap ? code::FixMap : code::FixArray) | count));
    else if (fits<std::uint16_t>(count))
        writeCoded(_stream, code16, static_cast<std::uint16_t>(count));
    else
        writeCoded(_stream, static_cast<std::uint8_t>(code16 + 1), static_cast<std::uint32_t>(count));
}

} // namespace fn::mpack
