#pragma once
#include "base/byte_array.h"
#include <array>
#include <cstdint>
#include <cstring>

namespace fn {

/// A target for bytes. A concrete stream may offer a window of memory, so that small writes are a copy without a virtual call.
class FN_EXPORT OutputStream {
public:
    OutputStream() = default;
    OutputStream(const OutputStream&) = delete;
    OutputStream& operator=(const OutputStream&) = delete;
    virtual ~OutputStream();

    /// Errors are exceptions of the concrete stream; after an error the stream must not be used any more.
    void write(const void* data, std::size_t size)
    {
        if (fits(size)) [[likely]] {
            std::memcpy(_window, data, size);
            _window += size;
        } else {
            writeSlow(data, size);
        }
    }
    void write(std::string_view text) { write(text.data(), text.size()); }
    /// As `write()`, for bytes whose number is known when this is compiled: they take a few stores.
    template <std::size_t size> [[gnu::always_inline]] void writeFixed(const std::array<char, size>& bytes)
    {
        if (!fits(size)) [[unlikely]]
            return writeSlow(bytes.data(), size);
        std::memcpy(_window, bytes.data(), size);
        _window += size;
    }
    /// As `write()` of one byte.
    void writeByte(std::uint8_t byte)
    {
        if (_window < _windowEnd) [[likely]]
            *_window++ = byte;
        else
            writeSlow(&byte, 1);
    }

    /// Writes all of `bytes`; some streams keep a reference to a large array instead of a copy.
    virtual void writeShared(const ByteArray& bytes);

    virtual void flush(); ///< Hands on the bytes that are buffered. Default: does nothing.

    /// Ends the stream; `flushAll` also flushes the streams below. A second call does nothing. Default: flushes.
    virtual void close(bool flushAll = true);

protected:
    /// Does a `write()` that does not fit the window, or of `size` 0.
    virtual void writeSlow(const void* data, std::size_t size) = 0;

    std::uint8_t* _window = nullptr; ///< Where the next byte goes, while there is room before `_windowEnd`.
    std::uint8_t* _windowEnd = nullptr; ///< Behind the last place.

private:
    // A size of 0 wraps around and takes the slow way: memcpy() must not get the null pointers that may come with it.
    bool fits(std::size_t size) const noexcept { return size - 1 < static_cast<std::size_t>(_windowEnd - _window); }
};

} // namespace fn
