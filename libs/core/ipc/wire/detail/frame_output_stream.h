#pragma once
#include "base/byte_array.h"
#include "base/exceptions.h"
#include "foundation/io/output_stream.h"
#include <array>
#include <cstddef>
#include <span>

namespace ipc {

/// An encoded frame: up to three parts that follow one another on the wire. Receivers of the same message share it.
class Frame {
public:
    static constexpr std::size_t maxParts = 3; ///< The bytes before a large byte array, the array, the bytes behind it.

    fn::ByteArray& next() { return _parts[_count]; } ///< The part that `add()` will add.
    void add() { ++_count; }
    std::span<const fn::ByteArray> parts() const noexcept { return { _parts.data(), _count }; }
    std::size_t count() const noexcept { return _count; }
    std::uint8_t* begin() { return _parts[0].mutableData(); } ///< The first part, for the maker of the frame to write.

private:
    std::array<fn::ByteArray, maxParts> _parts;
    std::size_t _count = 0;
};

/// Collects the body of one frame. Writes are gathered in one buffer. The first large byte array becomes a part of its own,
/// shared with its owner instead of copied; all that follows is gathered behind it.
class FrameOutputStream final : public fn::OutputStream {
public:
    /// An array of fewer bytes is copied, which is cheaper than a further element of the vectored write.
    static constexpr std::size_t sharedFrom = 16 * 1024;

    static constexpr std::size_t headerBytes = 4; ///< The length, little-endian.

    /// `expectedBytes`: how many bytes will be copied, if known; one allocation holds them then.
    explicit FrameOutputStream(std::size_t expectedBytes = 0);

    /// Bytes written so far.
    std::size_t size() const noexcept
    {
        return _finishedBytes + static_cast<std::size_t>(_window - _buffer) - headerBytes;
    }

    void writeShared(const fn::ByteArray& bytes) override;

    /// Memory for `bytes` bytes that the caller writes itself, up to the place that it gives to `wrote()`.
    std::uint8_t* memoryFor(std::size_t bytes)
    {
        if (bytes > static_cast<std::size_t>(_windowEnd - _window)) makeRoom(bytes);
        return _window;
    }
    void wrote(std::uint8_t* end) { _window = end; }

    /// Overwrites `size` written bytes at `offset` of the body, which lie before any shared array.
    void replace(std::size_t offset, const void* data, std::size_t size);

    /// Gives the frame, with its length in the header. `fn::RangeException` for a body above `maxBytes`, or of 4 GiB and more.
    Frame finish(std::size_t maxBytes);

private:
    void writeSlow(const void* data, std::size_t size) override;
    std::uint8_t* begin();
    void startBuffer(std::size_t capacity);
    void makeRoom(std::size_t bytes);
    void endBuffer();

    Frame _frame; // `_window` points into its next part.
    std::uint8_t* _buffer = nullptr; // Where the memory of that part begins; null, like `_window`, if there is none.
    std::size_t _finishedBytes = 0; // Bytes in the parts of `_frame`, the header included.
};

} // namespace ipc
