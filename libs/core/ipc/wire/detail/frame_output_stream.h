#pragma once
#include "base/exceptions.h"
#include "core/ipc/wire/detail/frame.h"
#include "foundation/io/output_stream.h"

namespace ipc {

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
