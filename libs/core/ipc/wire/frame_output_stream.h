#pragma once
#include "core/ipc/wire/frame.h"
#include "foundation/io/output_stream.h"

namespace ipc {

/// Collects the body of one frame. Small writes are gathered in one buffer; a large byte array becomes a part of its own,
/// shared with its owner instead of copied.
class FrameOutputStream final : public fn::OutputStream {
public:
    /// `expectedBytes` of body, if known: one allocation holds it then.
    explicit FrameOutputStream(std::size_t expectedBytes = 0);

    void writeShared(const fn::ByteArray& bytes) override;

    /// Ends the frame and writes its length in front. A body above `maxBytes`, or above what 32 bits tell:
    /// `fn::RangeException`.
    Frame finish(std::size_t maxBytes);

private:
    void writeSlow(const void* data, std::size_t size) override;
    void startBuffer(std::size_t capacity);
    void endBuffer();

    Frame _frame;
    fn::ByteArray _buffer; // The part being written; `_window` points into it.
    std::size_t _finishedBytes = 0; // Of `_frame`.
};

} // namespace ipc
