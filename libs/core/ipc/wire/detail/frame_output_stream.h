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

    void add(fn::ByteArray part) { _parts[_count++] = std::move(part); }
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

    std::size_t size() const noexcept; ///< Bytes written so far.

    void writeShared(const fn::ByteArray& bytes) override;

    /// Overwrites `size` written bytes at `offset` of the body, which lie before any shared array.
    void replace(std::size_t offset, const void* data, std::size_t size);

    /// Gives the frame, with its length in the header. `fn::RangeException` for a body above `maxBytes`, or of 4 GiB and more.
    Frame finish(std::size_t maxBytes);

private:
    void writeSlow(const void* data, std::size_t size) override;
    std::uint8_t* begin();
    void startBuffer(std::size_t capacity);
    void endBuffer();

    Frame _frame;
    fn::ByteArray _buffer; // The part being written; `_window` points into it.
    std::size_t _finishedBytes = 0; // Bytes in the parts of `_frame`, the header included.
};

} // namespace ipc
