#pragma once
#include "base/byte_array.h"
#include "base/exceptions.h"
#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>

namespace fn {

/// A source of bytes. A concrete stream may offer a window: memory that it has read already.
class FN_EXPORT InputStream {
public:
    InputStream() = default;
    InputStream(const InputStream&) = delete;
    InputStream& operator=(const InputStream&) = delete;
    virtual ~InputStream();

    /// Reads up to `size` bytes and returns their number: 0 only at the end of the stream, or for `size` 0.
    std::size_t read(void* data, std::size_t size)
    {
        if (fits(size)) [[likely]] {
            std::memcpy(data, _window, size);
            _window += size;
            return size;
        }
        return readSlow(data, size);
    }

    /// Reads exactly `size` bytes; `fn::EndOfStreamException` if the stream has fewer.
    void readExactly(void* data, std::size_t size)
    {
        if (fits(size)) [[likely]] {
            std::memcpy(data, _window, size);
            _window += size;
        } else {
            readExactlySlow(data, size);
        }
    }

    /// Reads exactly `size` bytes into an array, which may share the stream's own buffer; `fn::EndOfStreamException` if the stream
    /// has fewer. Memory is allocated for bytes as they come, not for the announced `size`.
    virtual ByteArray readByteArray(std::size_t size);

    /// Reads exactly `size` bytes as text, as `readByteArray()` does.
    String readString(std::size_t size)
    {
        if (fits(size)) [[likely]] {
            const auto* text = reinterpret_cast<const char*>(std::exchange(_window, _window + size));
            return std::string_view(text, size);
        }
        return readByteArray(size).view();
    }

    void skip(std::size_t size); ///< Skips exactly `size` bytes; `fn::EndOfStreamException` if the stream has fewer.

    /// Whether `size` bytes are in the window already. False does not mean that the stream has fewer.
    bool holds(std::size_t size) const noexcept { return size <= static_cast<std::size_t>(_windowEnd - _window); }

    /// The number of bytes left, if the stream knows it. At least so many bytes will come.
    virtual std::optional<std::uint64_t> remaining() const;

    virtual std::uint64_t position() const = 0; ///< Bytes read so far.

protected:
    /// Does a `read()` for which the window holds fewer than `size` bytes, or of `size` 0.
    virtual std::size_t readSlow(void* data, std::size_t size) = 0;
    void readExactlySlow(void* data, std::size_t size); ///< `readExactly()` where the window holds too little.

    /// `fn::EndOfStreamException` that tells how many bytes are missing.
    [[noreturn]] void throwEndOfStream(std::size_t missing) const;

    const std::uint8_t* _window = nullptr; ///< What has been fetched and not read yet, up to `_windowEnd`.
    const std::uint8_t* _windowEnd = nullptr; ///< Behind the last byte that has been fetched.

private:
    friend class LimitedInputStream;
    // A size of 0 wraps around and takes the slow way: memcpy() must not get the null pointers that may come with it.
    bool fits(std::size_t size) const noexcept { return size - 1 < static_cast<std::size_t>(_windowEnd - _window); }
};

} // namespace fn
