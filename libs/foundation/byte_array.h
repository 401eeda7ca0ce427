#pragma once
#include "foundation/string.h"
#include <compare>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

namespace fn {

/// Bytes in a shared, copy-on-write buffer: 16 bytes large, at most 4 GiB - 1. Copies and `slice()`s share the buffer;
/// the first change of a shared one copies it. Distinct arrays may be used on distinct threads.
class FN_EXPORT ByteArray {
public:
    ByteArray() noexcept = default;
    explicit ByteArray(unsigned int size); ///< `size` zero bytes.
    ByteArray(const void* data, std::size_t size); ///< Copies. Above the largest size: `fn::RangeException`.
    explicit ByteArray(std::string_view text) : ByteArray(text.data(), text.size()) { }
    ByteArray(const ByteArray& other) noexcept : _buffer(other._buffer), _offset(other._offset), _size(other._size)
    {
        if (_buffer) retain();
    }
    ByteArray(ByteArray&& other) noexcept
        : _buffer(std::exchange(other._buffer, nullptr)),
          _offset(std::exchange(other._offset, 0)),
          _size(std::exchange(other._size, 0))
    {
    }
    ByteArray& operator=(ByteArray other) noexcept
    {
        std::swap(_buffer, other._buffer);
        std::swap(_offset, other._offset);
        std::swap(_size, other._size);
        return *this;
    }
    ~ByteArray()
    {
        if (_buffer) release();
    }

    const std::uint8_t* data() const noexcept; ///< Never null.
    std::size_t size() const noexcept { return _size; }
    bool empty() const noexcept { return _size == 0; }
    std::span<const std::uint8_t> bytes() const noexcept { return { data(), _size }; }
    std::string_view view() const noexcept { return { reinterpret_cast<const char*>(data()), _size }; }

    std::uint8_t* mutableData(); ///< Makes the buffer this array's own first.
    std::size_t capacity() const noexcept; ///< Bytes it can hold without moving; 0 while shared.
    bool isShared() const noexcept; ///< Whether another array refers to the same buffer.

    void reserve(std::size_t capacity); ///< Does not touch the new memory.
    void resize(std::size_t size); ///< New bytes are zero.
    /// Grows or shrinks without setting new bytes: the caller writes them before anybody reads them.
    void resizeUninitialized(std::size_t size);
    void append(const void* data, std::size_t size);
    void removePrefix(std::size_t size) noexcept; ///< Forgets bytes in front (at most all) without moving the others.
    void clear() noexcept; ///< Empties it; the storage is kept unless it is shared.

    /// `size` bytes from `offset` (both clamped), sharing the buffer.
    ByteArray slice(std::size_t offset, std::size_t size) const noexcept;

    String hex() const; ///< Lower case.
    /// Base64 text; `lineLength` > 0 puts CRLF after each that many characters, but not at the end.
    String base64(int lineLength = 0) const;
    /// Skips blanks and line ends; anything else that is not Base64: `fn::DataFormatException`.
    static ByteArray fromBase64(std::string_view text);

    ByteArray SHA256() const; ///< The 32 bytes of the digest.

    String toString() const { return hex(); }

    friend bool operator==(const ByteArray& a, const ByteArray& b) noexcept { return a.view() == b.view(); }
    friend std::strong_ordering operator<=>(const ByteArray& a, const ByteArray& b) noexcept
    {
        return a.view() <=> b.view();
    }

private:
    struct Buffer;
    ByteArray(Buffer* buffer, std::uint32_t offset, std::uint32_t size) noexcept; // Takes over one reference.
    void retain() const noexcept;
    void release() noexcept;
    void makeOwn(std::size_t capacity); // Afterwards the buffer is unshared and holds at least `capacity` bytes.

    Buffer* _buffer = nullptr;
    std::uint32_t _offset = 0;
    std::uint32_t _size = 0;
};

} // namespace fn
