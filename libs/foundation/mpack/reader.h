#pragma once
#include "base/byte_array.h"
#include "base/byte_view.h"
#include "base/exceptions.h"
#include "foundation/mpack/codes.h"
#include <concepts>
#include <cstdint>
#include <limits>
#include <string_view>
#include <utility>

namespace fn::mpack {

/// A value is of another kind than the reader was asked for, or does not fit, or the bytes are malformed. Not passed on as it is:
/// who knows what the bytes stand for says so in an exception of its own.
class FN_EXPORT MismatchException final : public DataFormatException {
public:
    MismatchException(String expected, std::size_t offset);
    ~MismatchException() override;

    const String& expected() const noexcept { return _expected; } ///< "text", "an integer of 8 bits".
    std::size_t offset() const noexcept { return _offset; } ///< Where the value begins, in bytes.

private:
    String _expected;
    std::size_t _offset;
};

/// Reads MessagePack from untrusted bytes that lie in memory, value by value, straight into C++ types: who reads says what must
/// come next. What does not match is a `MismatchException`; the reader is not used any more then.
class FN_EXPORT Reader {
public:
    /// `bytes` are borrowed. They lie in `owner`, if that is given: large arrays share it instead of being copied.
    explicit Reader(ByteView bytes, const ByteArray* owner = nullptr)
        : _begin(bytes.data()),
          _at(bytes.data()),
          _end(bytes.data() + bytes.size()),
          _owner(owner)
    {
    }

    /// Bounds the number of values inside all containers together, as `Deserializer::setMaxValues()` does.
    void setMaxValues(std::uint64_t count) noexcept { _valuesLeft = count; }

    bool isAtEnd() const noexcept { return _at == _end; }
    std::size_t offset() const noexcept { return static_cast<std::size_t>(_at - _begin); }
    void setOffset(std::size_t offset) noexcept { _at = _begin + offset; } ///< Where a value begins that it has passed.
    ByteView bytes() const noexcept { return { _begin, _end }; }

    /// Passes a nil; if another value comes, does nothing and gives false.
    bool takeNil() noexcept
    {
        if (_at == _end || *_at != code::Nil) return false;
        ++_at;
        return true;
    }
    bool nextIsText() const noexcept
    {
        return _at != _end
            && ((*_at >= code::FixStr && *_at < code::Nil) || (*_at >= code::Str8 && *_at <= code::Str32));
    }
    bool nextIsArray() const noexcept;
    bool nextIsMap() const noexcept
    {
        return _at != _end
            && ((*_at >= code::FixMap && *_at < code::FixArray) || *_at == code::Map16 || *_at == code::Map32);
    }

    bool readBool();
    template <std::integral T> T readInteger()
    {
        if (_at != _end && *_at < code::FixMap) return static_cast<T>(*_at++);
        return static_cast<T>(
            readNumber(static_cast<std::int64_t>(std::numeric_limits<T>::min()), std::numeric_limits<T>::max()));
    }
    double readDouble(); ///< Takes integers, too.
    std::string_view readText() ///< Valid as long as the bytes.
    {
        if (_at == _end || static_cast<std::uint8_t>(*_at - code::FixStr) >= 32) return readLongText();
        const std::size_t size = *_at & 31u;
        if (size >= left()) failEnd();
        const auto* text = reinterpret_cast<const char*>(_at + 1);
        _at += 1 + size;
        return { text, size };
    }
    ByteArray readBytes();

    /// Enters a container and gives the number of its elements or entries; `end()` leaves it. Each value takes a byte at
    /// least, so the number is never larger than the bytes that are left.
    std::uint32_t beginArray();
    std::uint32_t beginMap();
    void end() noexcept { --_depth; }

    std::uint32_t beginExtension(std::int8_t& type); ///< Gives the number of bytes that follow.
    const std::uint8_t* pass(std::uint64_t size); ///< Passes bytes, and gives the first.

    /// Counts an element that takes so many bytes in memory as the values that would take as many.
    void charge(std::size_t bytes)
    {
        const auto values = (bytes - 1) / valueBytes; // The container has counted one.
        if (values > _valuesLeft) fail("fewer values in all containers");
        _valuesLeft -= values;
    }

    void skip() ///< Passes one value of any kind.
    {
        const std::size_t size = _at == _end ? 0 : plainSizes[*_at];
        if (size == 0 || size > left()) return skipLong();
        _at += size;
    }
    void standAtNil() noexcept; ///< Goes on at a nil that lies elsewhere, and ends behind it.

    /// Passes a text if it is this one; else does nothing and gives false.
    bool takeText(std::string_view text)
    {
        if (text.size() >= 32) return takeLongText(text);
        if (text.size() >= left() || *_at != (code::FixStr | text.size())) return false;
        if (std::memcmp(_at + 1, text.data(), text.size()) != 0) return false;
        _at += 1 + text.size();
        return true;
    }

    /// Throws what says that `expected` was to come at the present place.
    [[noreturn]] void fail(String expected) const;

protected:
    const ByteArray* owner() const noexcept { return _owner; }
    std::uint64_t valuesLeft() const noexcept { return _valuesLeft; }

private:
    static constexpr std::size_t valueBytes = 24; // Of an fn::Value.

    std::size_t left() const noexcept { return static_cast<std::size_t>(_end - _at); }
    std::uint64_t readNumber(std::int64_t least, std::uint64_t most);
    std::string_view readLongText();
    bool takeLongText(std::string_view text);
    template <typename T> T number(); // Behind the code; passes both.
    std::uint32_t enter(std::uint32_t count, int valuesEach);
    void skipMany(std::uint64_t count);
    void skipLong();
    [[noreturn]] void failEnd() const;

    const std::uint8_t* _begin;
    const std::uint8_t* _at;
    const std::uint8_t* _end;
    const ByteArray* _owner;
    std::uint64_t _valuesLeft = UINT64_MAX;
    int _depth = 0;
};

} // namespace fn::mpack
