#pragma once
#include "foundation/uv/stream.h"
#include <deque>
#include <uv.h>

namespace fn::uv {

/// The writes that a stream has still to send, and the completions of writes that it has sent or will never send. Small writes
/// without completion are joined in memory: copying them costs less than giving each an entry here and in the system call.
class WriteQueue {
public:
    struct Batch {
        unsigned parts;
        std::size_t bytes;
    };

    void push(const ByteArray& bytes, Stream::Completion&& completion); ///< Mostly it copies the bytes.

    bool empty() const noexcept { return _entries.empty(); }
    std::size_t bytes() const noexcept { return _bytes; } ///< Still to send.

    /// Fills `parts` with the bytes to send next. The memory stays valid until its entries leave the queue.
    Batch gather(std::span<uv_buf_t> parts) noexcept;

    void sent(std::size_t bytes); ///< The first `bytes` bytes of the queue have been sent.
    void fail(int code); ///< No queued byte will be sent: all entries finish with `code`.
    void refuse(Stream::Completion completion, int code); ///< Finishes a write that is not in the queue.
    void drop(); ///< Forgets everything; no completion is called.

    bool hasFinished() const noexcept { return !_finished.empty(); }
    void complete(); ///< Calls the completions of the writes that have finished by now, in the order of the writes.

private:
    struct Entry {
        ByteArray bytes;
        Stream::Completion completion;
    };
    struct Finished {
        Stream::Completion completion;
        int code = 0;
    };
    bool join(const ByteArray& bytes);
    void finishFirst(int code);

    std::deque<Entry> _entries;
    bool _isJoining = false; // The last entry is a block of the queue's own: small writes may be appended to it.
    std::size_t _sentOfFirst = 0; // Bytes of the first entry that have left.
    std::size_t _bytes = 0;
    std::deque<Finished> _finished;
};

} // namespace fn::uv
