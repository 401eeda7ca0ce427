#pragma once
#include "foundation/io/input_stream.h"

namespace fn {

/// Reads the next `size` bytes of another stream, which it borrows and which must not be used meanwhile. Afterwards the other stream
/// goes on behind the last byte read, or after `finish()` behind all `size` bytes.
class FN_EXPORT LimitedInputStream final : public InputStream {
public:
    LimitedInputStream(InputStream& stream, std::size_t size); ///< Borrows `stream`, and ends after `size` bytes of it.
    ~LimitedInputStream() override;

    void finish(); ///< Skips the bytes that are left.

    ByteArray readByteArray(std::size_t size) override;
    std::optional<std::uint64_t> remaining() const override;
    std::uint64_t position() const override;

private:
    std::size_t readSlow(void* data, std::size_t size) override;
    std::size_t left() const noexcept { return static_cast<std::size_t>(_windowEnd - _window) + _beyond; }
    void lendWindow() noexcept;
    void returnWindow() noexcept;

    InputStream& _stream;
    const std::size_t _size;
    std::size_t _beyond; // Bytes of this stream that lie behind its window.
};

} // namespace fn
