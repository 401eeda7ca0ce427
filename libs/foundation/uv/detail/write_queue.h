#pragma once
#include "foundation/uv/stream.h"
#include <deque>
#include <uv.h>

namespace fn::uv {

/// What a stream has still to send, and the completions of what it has sent or will never send. Small writes that nobody
/// waits for are joined in memory: copying them costs less than a place in the queue and in the system call for each.
class WriteQueue {
public:
    struct Batch {
        unsigned parts;
        std::size_t bytes;
    };

    void push(ByteArray bytes, Stream::Completion completion);

    bool empty() const noexcept { return _entries.empty(); }
    std::size_t bytes() const noexcept { return _bytes; } ///< Still to send.

    /// Fills `parts` with what is to be sent next. It stays valid until the entries leave the queue.
    Batch gather(std::span<uv_buf_t> parts) noexcept;

    void sent(std::size_t bytes); ///< So many bytes from the front have left.
    void fail(int code); ///< Nothing of what is queued will leave.
    void refuse(Stream::Completion completion, int code); ///< Finishes a write that was never queued.
    void drop(); ///< Forgets everything; no completion is called.

    bool hasFinished() const noexcept { return !_finished.empty(); }
    void complete(); ///< Calls what has finished by now, in order of the writes.

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
    bool _isJoining = false; // The last entry is a block of the queue's own: more may be appended.
    std::size_t _sentOfFirst = 0; // Bytes of the first entry that have left.
    std::size_t _bytes = 0;
    std::deque<Finished> _finished;
};

} // namespace fn::uv
