#pragma once
#include "base/exceptions.h"
#include "foundation/io/output_stream.h"
#include "foundation/mpack/codes.h"
#include <array>
#include <concepts>
#include <cstdint>
#include <string_view>

namespace fn::mpack {

/// Writes MessagePack piece by piece, integers and lengths in their shortest form; doubles in 64 bits, bytes as bin, text as str.
class FN_EXPORT Writer {
public:
    explicit Writer(OutputStream& stream) : _stream(stream) { } ///< `stream` is borrowed.

    /// Bounds the number of values inside all containers together, as `Deserializer::setMaxValues()` does; an entry of a map counts
    /// as two. More values: `fn::DataFormatException`. Default: no bound.
    void setMaxValues(std::uint64_t count) noexcept { _valuesLeft = count; }

    void writeNil() { _stream.writeByte(code::Nil); }
    void writeBool(bool value) { _stream.writeByte(value ? code::True : code::False); }
    template <std::signed_integral T> void writeInteger(T number)
    {
        if (number < 0)
            writeNegative(number);
        else
            writeInteger(static_cast<std::make_unsigned_t<T>>(number));
    }
    template <std::unsigned_integral T> void writeInteger(T number)
    {
        if (number < code::FixMap)
            _stream.writeByte(static_cast<std::uint8_t>(number));
        else
            writeUnsigned(number);
    }
    void writeDouble(double value);
    void writeText(std::string_view text)
    {
        if (text.size() >= 32) return writeLongText(text);
        _stream.writeByte(static_cast<std::uint8_t>(code::FixStr | text.size()));
        _stream.write(text);
    }
    /// As `writeText()`, for a literal: its length is known, so that most of them are a few stores.
    template <std::size_t size> void writeName(const char (&name)[size])
    {
        constexpr auto length = size - 1;
        if constexpr (length >= 32) return writeLongText({ name, length });
        std::array<char, size> bytes { static_cast<char>(code::FixStr | length) };
        std::memcpy(bytes.data() + 1, name, length);
        _stream.writeFixed(bytes);
    }
    void writeBytes(const ByteArray& bytes); ///< A large array may be shared instead of copied.

    /// Begins a container: `count` values follow, for a map as many keys, each with its value behind it; then `end()`. Containers
    /// deeper than `maxDepth`: `fn::DataFormatException`.
    void beginArray(std::size_t count) { begin(count, false); }
    void beginMap(std::size_t count) { begin(count, true); }
    void end() noexcept { --_depth; }

    void beginExtension(std::int8_t type, std::uint32_t size); ///< `size` bytes follow.

    OutputStream& stream() noexcept { return _stream; }

private:
    void begin(std::size_t count, bool isMap);
    void writeUnsigned(std::uint64_t number);
    void writeNegative(std::int64_t number);
    void writeLongText(std::string_view text);

    OutputStream& _stream;
    std::uint64_t _valuesLeft = UINT64_MAX;
    int _depth = 0; // Containers that have begun and not ended.
};

} // namespace fn::mpack
