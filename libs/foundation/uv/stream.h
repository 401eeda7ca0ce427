#pragma once
#include "base/byte_array.h"
#include "base/ref_counted.h"
#include "foundation/uv/status.h"
#include <folly/Function.h>
#include <span>

namespace fn::uv {

/// A connected byte stream. All operations and callbacks are on its loop's thread.
///
/// Small writes of one turn of the loop are sent together, in one system call if the kernel takes them all, at the latest before
/// the loop waits; once 2 KiB are queued, they are sent in growing portions while the turn goes on. Each write still completes
/// on its own, in order. A write that cannot be sent before the stream is closed completes with UV_ECANCELED.
class FN_EXPORT Stream : public RefCountedObject {
public:
    /// `count` is positive, and so many bytes at `data` are valid during the call; or it is negative, a libuv error (UV_EOF: the
    /// peer has ended the stream). A negative count is the last call.
    using ReadCallback = folly::Function<void(std::ptrdiff_t count, const std::uint8_t* data)>;
    using Completion = folly::Function<void(const Status&)>;

    virtual void readStart(ReadCallback callback) = 0; ///< Replaces an earlier callback. `fn::IOException` on errors.
    virtual void readStop() = 0; ///< Pauses reading; nothing is lost. The callback is kept.
    virtual void readResume() = 0; ///< Goes on after `readStop()`.
    virtual bool isReading() const noexcept = 0; ///< Whether a reader is called for what comes.

    /// Reads now what the kernel already holds, without waiting, and delivers it to the read callback.
    virtual void readPending() = 0;

    /// The next read goes into `memory`, with no more bytes than fit, instead of into a buffer of the loop: this saves a copy.
    /// `memory` stays valid until that read, a close, or another call that replaces it (empty: by the loop's buffer).
    virtual void readInto(std::span<std::uint8_t> memory) = 0;

    /// Queues all of `bytes`. `completion` (may be empty) is called once on a later turn, also when the stream is closed
    /// or broken meanwhile. On a closed stream the write completes with UV_ECANCELED.
    virtual void write(ByteArray bytes, Completion completion = {}) = 0;

    /// The same for parts that follow one another on the stream, sent without being joined in memory.
    virtual void write(std::span<const ByteArray> parts, Completion completion = {}) = 0;

    /// Calls `callback` once, on a later turn, when at most `bytes` are still queued: for a sender that makes no more output until
    /// a slow receiver has taken what is queued. A new callback replaces an earlier one, and closing drops it. Progress is noticed
    /// at the latest when the kernel has taken a few megabytes.
    virtual void whenQueuedAtMost(std::size_t bytes, folly::Function<void()> callback) = 0;

    virtual std::size_t queuedBytes() const noexcept = 0; ///< Written, but not yet taken by the kernel.
    virtual std::uint64_t sentBytes() const noexcept = 0; ///< Taken by the kernel since the stream was made.

    /// Tries to send what is queued, ends reading, and closes. Read callbacks are destroyed, no further read is delivered.
    /// `completion` is called when the descriptor is closed. A second call does nothing, and drops its `completion`.
    virtual void close(folly::Function<void()> completion = {}) = 0;
    virtual bool isClosed() const noexcept = 0; ///< Whether it takes nothing more.

protected:
    ~Stream() override;
};

} // namespace fn::uv
