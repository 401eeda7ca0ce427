#pragma once
#include "base/byte_view.h"
#include "base/exceptions.h"
#include "core/ipc/wire/frame.h"
#include "foundation/io/output_stream.h"

namespace ipc {

/// Collects the body of one frame. Small writes are gathered in one buffer; a large byte array becomes a part of its own,
/// shared with its owner instead of copied.
class FN_EXPORT FrameOutputStream final : public fn::OutputStream {
public:
    /// Below this, copying is cheaper than a further element of the vectored write.
    static constexpr std::size_t sharedFrom = 16 * 1024;

    /// `expectedBytes` that will be copied, if known: one allocation holds them then. `prefixBytes`: room in front of what is
    /// written, for what is known only when the rest has been written.
    explicit FrameOutputStream(std::size_t expectedBytes = 0, std::size_t prefixBytes = 0);

    std::size_t size() const noexcept; ///< Bytes written so far.

    void writeShared(const fn::ByteArray& bytes) override;

    /// Ends the frame: its length, `prefix` (not longer than announced), what was written. A body above `maxBytes`, or above
    /// what 32 bits tell: `fn::RangeException`.
    Frame finish(std::size_t maxBytes, fn::ByteView prefix = {});

private:
    void writeSlow(const void* data, std::size_t size) override;
    void startBuffer(std::size_t capacity);
    void endBuffer();

    const std::size_t _room; // In front of what is written.
    Frame _frame;
    fn::ByteArray _buffer; // The part being written; `_window` points into it.
    std::size_t _finishedBytes = 0; // Of `_frame`, with the room.
};

} // namespace ipc
