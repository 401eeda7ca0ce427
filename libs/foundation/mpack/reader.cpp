#include "foundation/mpack/reader.h"
#include "foundation/mpack/hooks.h"
#include <bit>
#include <cstring>
#include <fmt/format.h>

namespace fn::mpack {

MismatchException::MismatchException(String expected, std::size_t offset)
    : DataFormatException(fmt::format("Expected {} at offset {}", expected, offset), StackTrace::None),
      _expected(std::move(expected)),
      _offset(offset)
{
}
MismatchException::~MismatchException() = default;

void Reader::fail(String expected) const { throw MismatchException(std::move(expected), offset()); }

void Reader::failEnd() const { fail("more bytes"); }

template <typename T> T Reader::number()
{
    if (sizeof(T) >= left()) failEnd();
    T value;
    std::memcpy(&value, _at + 1, sizeof value);
    _at += 1 + sizeof value;
    return bigEndian(value);
}

const std::uint8_t* Reader::pass(std::uint64_t size)
{
    if (size > left()) failEnd();
    return std::exchange(_at, _at + size);
}

bool Reader::nextIsArray() const noexcept
{
    return _at != _end
        && ((*_at >= code::FixArray && *_at < code::FixStr) || *_at == code::Array16 || *_at == code::Array32);
}

void Reader::standAtNil() noexcept
{
    static constexpr std::uint8_t nil[] { code::Nil };
    _begin = _at = nil;
    _end = nil + sizeof nil;
    _owner = nullptr;
}

bool Reader::readBool()
{
    if (_at == _end || (*_at != code::False && *_at != code::True)) fail("a boolean");
    return *_at++ == code::True;
}

std::uint64_t Reader::readNumber(std::int64_t least, std::uint64_t most)
{
    const auto* const begin = _at;
    const auto wanted = [&]() -> String {
        _at = begin;
        const auto bits = std::bit_width(most) + (least < 0 ? 1 : 0);
        return fmt::format("an {}integer of {} bits", least < 0 ? "" : "unsigned ", bits);
    };
    if (_at == _end) failEnd();
    std::int64_t value = 0;
    switch (const auto first = *_at) {
    case code::UInt8: value = number<std::uint8_t>(); break;
    case code::UInt16: value = number<std::uint16_t>(); break;
    case code::UInt32: value = number<std::uint32_t>(); break;
    case code::UInt64: {
        const auto large = number<std::uint64_t>();
        if (large > most) fail(wanted());
        return large;
    }
    case code::Int8: value = static_cast<std::int8_t>(number<std::uint8_t>()); break;
    case code::Int16: value = static_cast<std::int16_t>(number<std::uint16_t>()); break;
    case code::Int32: value = static_cast<std::int32_t>(number<std::uint32_t>()); break;
    case code::Int64: value = static_cast<std::int64_t>(number<std::uint64_t>()); break;
    default:
        if (first < code::NegativeFixInt) fail(wanted());
        value = static_cast<std::int8_t>(first);
        ++_at;
    }
    if (value < least || (value >= 0 && static_cast<std::uint64_t>(value) > most)) fail(wanted());
    return static_cast<std::uint64_t>(value);
}

double Reader::readDouble()
{
    if (_at == _end) failEnd();
    switch (const auto first = *_at) {
    case code::Float64: return std::bit_cast<double>(number<std::uint64_t>());
    case code::Float32: return std::bit_cast<float>(number<std::uint32_t>());
    case code::UInt64: return static_cast<double>(number<std::uint64_t>());
    default:
        if (first >= code::FixMap && first < code::NegativeFixInt && (first < code::UInt8 || first > code::Int64))
            fail("a number");
        return static_cast<double>(readInteger<std::int64_t>());
    }
}

std::string_view Reader::readLongText()
{
    if (_at == _end) failEnd();
    std::uint64_t size = 0;
    switch (*_at) {
    case code::Str8: size = number<std::uint8_t>(); break;
    case code::Str16: size = number<std::uint16_t>(); break;
    case code::Str32: size = number<std::uint32_t>(); break;
    default: fail("a text");
    }
    const auto* text = reinterpret_cast<const char*>(pass(size));
    return { text, static_cast<std::size_t>(size) };
}

bool Reader::takeLongText(std::string_view text)
{
    const auto* const begin = _at;
    if (nextIsText() && readLongText() == text) return true;
    _at = begin;
    return false;
}

ByteArray Reader::readBytes()
{
    if (_at == _end) failEnd();
    std::size_t size = 0;
    switch (*_at) {
    case code::Bin8: size = number<std::uint8_t>(); break;
    case code::Bin16: size = number<std::uint16_t>(); break;
    case code::Bin32: size = number<std::uint32_t>(); break;
    default: fail("bytes");
    }
    const auto* data = pass(size);
    // A smaller slice would keep a large buffer alive.
    if (_owner && size >= _owner->size() - size)
        return _owner->slice(static_cast<std::size_t>(data - _owner->data()), size);
    return { data, size };
}

std::uint32_t Reader::enter(std::uint32_t count, int valuesEach)
{
    const auto values = std::uint64_t(valuesEach) * count;
    if (_depth >= maxDepth) fail("a value that is nested less deeply");
    if (values > _valuesLeft) fail("fewer values in all containers");
    if (values > left()) failEnd();
    _valuesLeft -= values;
    ++_depth;
    return count;
}

std::uint32_t Reader::beginArray()
{
    if (_at == _end) failEnd();
    switch (const auto first = *_at) {
    case code::Array16: return enter(number<std::uint16_t>(), 1);
    case code::Array32: return enter(number<std::uint32_t>(), 1);
    default:
        if (first < code::FixArray || first >= code::FixStr) fail("an array");
        ++_at;
        return enter(first - code::FixArray, 1);
    }
}

std::uint32_t Reader::beginMap()
{
    if (_at == _end) failEnd();
    switch (const auto first = *_at) {
    case code::Map16: return enter(number<std::uint16_t>(), 2);
    case code::Map32: return enter(number<std::uint32_t>(), 2);
    default:
        if (first < code::FixMap || first >= code::FixArray) fail("a map");
        ++_at;
        return enter(first - code::FixMap, 2);
    }
}

std::uint32_t Reader::beginExtension(std::int8_t& type)
{
    if (_at == _end) failEnd();
    std::uint32_t size = 0;
    switch (*_at) {
    case code::FixExt1:
    case code::FixExt2:
    case code::FixExt4:
    case code::FixExt8:
    case code::FixExt16: size = 1u << (*_at++ - code::FixExt1); break;
    case code::Ext8: size = number<std::uint8_t>(); break;
    case code::Ext16: size = number<std::uint16_t>(); break;
    case code::Ext32: size = number<std::uint32_t>(); break;
    default: fail("an extension value");
    }
    type = static_cast<std::int8_t>(*pass(1));
    return size;
}

void Reader::skipMany(std::uint64_t count)
{
    for (; count > 0; --count) skip();
    end();
}

/// Passes what `plainSizes` does not know, or what ends early.
void Reader::skipLong()
{
    if (_at == _end) failEnd();
    const auto first = *_at;
    std::int8_t type = 0;
    switch (first) {
    case code::Bin8: pass(number<std::uint8_t>()); break;
    case code::Bin16: pass(number<std::uint16_t>()); break;
    case code::Bin32: pass(number<std::uint32_t>()); break;
    case code::Ext8:
    case code::Ext16:
    case code::Ext32:
    case code::FixExt1:
    case code::FixExt2:
    case code::FixExt4:
    case code::FixExt8:
    case code::FixExt16: pass(beginExtension(type)); break;
    case code::Str8:
    case code::Str16:
    case code::Str32: readLongText(); break;
    case code::Array16:
    case code::Array32: skipMany(beginArray()); break;
    case code::Map16:
    case code::Map32: skipMany(std::uint64_t(2) * beginMap()); break;
    default:
        if (plainSizes[first] > 0) failEnd();
        if (first >= code::FixStr) fail("a byte that begins a value");
        skipMany(first < code::FixArray ? std::uint64_t(2) * beginMap() : beginArray());
    }
}

} // namespace fn::mpack
