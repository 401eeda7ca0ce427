#pragma once
#include "foundation/io/output_stream.h"
#include <vector>

namespace ipc {

/// Collects one frame as parts that follow one another on the wire. Small writes are gathered in one buffer; large byte
/// arrays become parts of their own, shared with their owner instead of copied.
class FrameOutputStream final : public fn::OutputStream {
public:
    FrameOutputStream();

    void writeShared(const fn::ByteArray& bytes) override;

    /// Ends the frame: writes its length (the size of everything after the first 4 bytes) into the first 4 bytes.
    std::vector<fn::ByteArray> finish();

    std::size_t size() const noexcept; ///< Bytes written so far.

private:
    void writeSlow(const void* data, std::size_t size) override;
    void startBuffer(std::size_t capacity);
    void endBuffer();

    std::vector<fn::ByteArray> _parts;
    fn::ByteArray _buffer; // The part being written; `_window` points into it.
    std::size_t _finishedBytes = 0; // Of `_parts`.
};

} // namespace ipc
