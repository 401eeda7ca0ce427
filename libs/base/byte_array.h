#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include <atomic>
#include <compare>
#include <cstdint>
#include <cstring>
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
    /// Copies the bytes. More than 4 GiB - 1 of them: `fn::RangeException`.
    ByteArray(const void* data, std::size_t size) : ByteArray(copyOf(data, size), 0, static_cast<std::uint32_t>(size))
    {
    }
    explicit ByteArray(std::string_view text) : ByteArray(text.data(), text.size()) { }
    ByteArray(const ByteArray& other) noexcept : _buffer(other._buffer), _offset(other._offset), _size(other._size)
    {
        if (_buffer) retain();
    }
    ByteArray(ByteArray&& other) noexcept : ByteArray()
    {
        std::memcpy(static_cast<void*>(this), static_cast<const void*>(&other), sizeof *this);
        internal::storeWords(&other, 0, 0);
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

    /// Never null.
    const std::uint8_t* data() const noexcept { return _buffer ? _buffer->bytes() + _offset : &noByte; }
    std::size_t size() const noexcept { return _size; } ///< How many bytes.
    bool empty() const noexcept { return _size == 0; } ///< Whether there is no byte.
    /// Borrowed: valid until the array changes or goes.
    std::span<const std::uint8_t> bytes() const noexcept { return { data(), _size }; }
    /// The bytes as text, borrowed: valid until the array changes or goes.
    std::string_view view() const noexcept { return { reinterpret_cast<const char*>(data()), _size }; }

    std::uint8_t* mutableData(); ///< Copies a shared buffer first.
    /// Bytes that the array can hold without moving; 0 while its buffer is shared.
    std::size_t capacity() const noexcept { return _buffer && _buffer->isUnique() ? _buffer->capacity - _offset : 0; }
    /// Whether another array refers to the same buffer.
    bool isShared() const noexcept { return _buffer && !_buffer->isUnique(); }

    void reserve(std::size_t capacity); ///< Does not touch the new memory.
    void resize(std::size_t size); ///< New bytes are zero.
    /// Grows or shrinks without setting new bytes: the caller writes them before anybody reads them.
    void resizeUninitialized(std::size_t size)
    {
        // A shorter view of a shared buffer needs no buffer of its own.
        if (size > _size) makeOwn(size);
        _size = static_cast<std::uint32_t>(size);
    }
    /// Adds bytes at the end, and copies a shared buffer first. `data` may lie in the array itself.
    void append(const void* data, std::size_t size);
    void clear() noexcept; ///< Empties the array; its buffer is kept unless it is shared.

    /// An array of `size` bytes from `offset` (both clamped) that shares the buffer.
    ByteArray slice(std::size_t offset, std::size_t size) const noexcept;

    String hex() const; ///< Lower case.
    /// Base64 text, with CRLF after every `lineLength` characters except at the end; 0: without line breaks.
    String base64(int lineLength = 0) const;
    /// Skips blanks and line ends; anything else that is not Base64: `fn::DataFormatException`.
    static ByteArray fromBase64(std::string_view text);

    ByteArray SHA256() const; ///< The 32 bytes of the digest.

    String toString() const { return hex(); } ///< The same as `hex()`.

    friend bool operator==(const ByteArray& a, const ByteArray& b) noexcept { return a.view() == b.view(); }
    friend std::strong_ordering operator<=>(const ByteArray& a, const ByteArray& b) noexcept
    {
        return a.view() <=> b.view();
    }

private:
    struct Buffer { // The header of a buffer; its bytes follow in memory.
        std::atomic<std::uint32_t> references;
        std::uint32_t capacity;

        std::uint8_t* bytes() noexcept { return reinterpret_cast<std::uint8_t*>(this + 1); }
        bool isUnique() const noexcept { return references.load(std::memory_order_acquire) == 1; }
    };
    static constexpr std::uint8_t noByte = 0;

    /// Takes over one reference to the buffer from the caller.
    ByteArray(Buffer* buffer, std::uint32_t offset, std::uint32_t size) noexcept
    {
        static_assert(sizeof(ByteArray) == 16 && sizeof(void*) == 8 && std::endian::native == std::endian::little);
        internal::storeWords(this, reinterpret_cast<std::uint64_t>(buffer), std::uint64_t(size) << 32 | offset);
    }
    void retain() const noexcept { _buffer->references.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept
    {
        // The only holder needs no locked instruction: nobody else could add a reference.
        if (_buffer->isUnique() || _buffer->references.fetch_sub(1, std::memory_order_acq_rel) == 1) free(_buffer);
    }
    enum class Fill { None, Zero };
    static Buffer* allocate(std::size_t capacity, Fill fill);
    static Buffer* copyOf(const void* data, std::size_t size);
    static Buffer* reallocate(Buffer* buffer, std::size_t capacity);
    static void free(Buffer* buffer) noexcept;
    /// Afterwards the buffer is unshared and holds at least `capacity` bytes.
    void makeOwn(std::size_t capacity)
    {
        if (!_buffer || !_buffer->isUnique() || _buffer->capacity - _offset < capacity) makeOwnSlow(capacity);
    }
    void makeOwnSlow(std::size_t capacity);

    Buffer* _buffer = nullptr;
    std::uint32_t _offset = 0;
    std::uint32_t _size = 0;
};

} // namespace fn
