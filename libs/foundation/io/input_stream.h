#pragma once
#include "foundation/byte_array.h"
#include <cstdint>
#include <cstring>
#include <optional>

namespace fn {

/// Where bytes come from. A concrete stream may offer a window of memory that it has already read.
class FN_EXPORT InputStream {
public:
    InputStream() = default;
    InputStream(const InputStream&) = delete;
    InputStream& operator=(const InputStream&) = delete;
    virtual ~InputStream();

    /// Up to `size` bytes; 0 only at the end (or for `size` 0).
    std::size_t read(void* data, std::size_t size)
    {
        if (size <= static_cast<std::size_t>(_windowEnd - _window)) [[likely]] {
            std::memcpy(data, _window, size);
            _window += size;
            return size;
        }
        return readSlow(data, size);
    }

    /// Exactly `size` bytes, else `fn::EndOfStreamException`.
    void readExactly(void* data, std::size_t size)
    {
        if (size <= static_cast<std::size_t>(_windowEnd - _window)) [[likely]] {
            std::memcpy(data, _window, size);
            _window += size;
        } else {
            readExactlySlow(data, size);
        }
    }

    /// Exactly `size` bytes as an array; may share the stream's own buffer. Touched memory grows with bytes received,
    /// never with the size asked for.
    virtual ByteArray readByteArray(std::size_t size);

    void skip(std::size_t size); ///< Else `fn::EndOfStreamException`.

    /// Bytes left, where the stream knows.
    virtual std::optional<std::uint64_t> remaining() const;

    virtual std::uint64_t position() const = 0; ///< Bytes read so far.

protected:
    virtual std::size_t readSlow(void* data, std::size_t size) = 0;
    void readExactlySlow(void* data, std::size_t size);

    const std::uint8_t* _window = nullptr;
    const std::uint8_t* _windowEnd = nullptr;
};

} // namespace fn
