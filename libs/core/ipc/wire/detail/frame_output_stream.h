#pragma once
#include "base/exceptions.h"
#include "core/ipc/wire/frame.h"
#include "foundation/io/output_stream.h"

namespace ipc {

/// Collects the body of one frame. Small writes are gathered in one buffer; a large byte array becomes a part of its own,
/// shared with its owner instead of copied.
class FrameOutputStream final : public fn::OutputStream {
public:
    /// Below this, copying is cheaper than a further element of the vectored write.
    static constexpr std::size_t sharedFrom = 16 * 1024;

    static constexpr std::size_t headerBytes = 4; ///< The length, little-endian.

    /// `expectedBytes` that will be copied, if known: one allocation holds them then.
    explicit FrameOutputStream(std::size_t expectedBytes = 0);

    std::size_t size() const noexcept; ///< Bytes written so far.

    void writeShared(const fn::ByteArray& bytes) override;

    /// Writes over what is there, before anything large, at this offset of the body.
    void replace(std::size_t offset, const void* data, std::size_t size);

    /// Ends the frame: its length, and what was written. A body above `maxBytes`, or above what 32 bits tell:
    /// `fn::RangeException`.
    Frame finish(std::size_t maxBytes);

private:
    void writeSlow(const void* data, std::size_t size) override;
    std::uint8_t* begin();
    void startBuffer(std::size_t capacity);
    void endBuffer();

    Frame _frame;
    fn::ByteArray _buffer; // The part being written; `_window` points into it.
    std::size_t _finishedBytes = 0; // Of `_frame`, with the header.
};

} // namespace ipc
