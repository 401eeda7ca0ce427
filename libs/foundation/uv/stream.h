#pragma once
#include "base/byte_array.h"
#include "base/ref_counted.h"
#include "foundation/uv/status.h"
#include <folly/Function.h>
#include <span>

namespace fn::uv {

/// A connected byte stream. All operations and callbacks are on its loop's thread.
///
/// Small writes made during one loop iteration leave together in one system call where the kernel takes it, at the latest
/// before the loop waits; once they are 2 KiB they leave in growing portions while the iteration goes on. Each still completes
/// on its own, in order. What cannot leave before a close completes with UV_ECANCELED.
class FN_EXPORT Stream : public RefCountedObject {
public:
    /// Bytes read: count > 0 and the data, valid during the call; 0 for nothing; negative for a libuv error (UV_EOF: the
    /// peer has ended the stream). After a negative count no further call comes.
    using ReadCallback = folly::Function<void(std::ptrdiff_t count, const std::uint8_t* data)>;
    using Completion = folly::Function<void(const Status&)>;

    virtual void readStart(ReadCallback callback) = 0; ///< Replaces an earlier callback. Errors are exceptions.
    virtual void readStop() = 0; ///< Pauses reading; nothing is lost. The callback is kept.
    virtual void readResume() = 0; ///< Goes on after `readStop()`.
    virtual bool isReading() const noexcept = 0;

    /// Reads now what the kernel already holds, without waiting, and delivers it to the read callback.
    virtual void readPending() = 0;

    /// The next read goes here, and takes no more than fits, instead of into memory of the loop's: for what would be copied
    /// anyway. The memory stays valid until then, until the stream is closed, or until it is replaced (empty: by the loop's).
    virtual void readInto(std::span<std::uint8_t> memory) = 0;

    /// Queues all of `bytes`. `completion` (may be empty) is called once on a later turn, also when the stream is closed
    /// or broken meanwhile. On a closed stream it completes with UV_ECANCELED.
    virtual void write(ByteArray bytes, Completion completion = {}) = 0;

    /// The same for parts that follow one another on the stream, sent without being joined in memory.
    virtual void write(std::span<const ByteArray> parts, Completion completion = {}) = 0;

    /// Calls `callback` once, on a later turn, when at most `bytes` are still queued: for whoever stops making
    /// output while a slow receiver has not taken what there is. One wish at a time: a new one replaces an earlier one, closing
    /// drops it. Progress is noticed at the latest when the kernel has taken a few megabytes.
    virtual void whenQueuedAtMost(std::size_t bytes, folly::Function<void()> callback) = 0;

    virtual std::size_t queuedBytes() const noexcept = 0; ///< Written, but not yet taken by the kernel.
    virtual std::uint64_t sentBytes() const noexcept = 0; ///< Taken by the kernel since the stream was made.

    /// Tries to send what is queued, ends reading, and closes. Callbacks are destroyed, no further read is delivered.
    /// Closing twice does nothing. `completion` is called when the descriptor is closed.
    virtual void close(folly::Function<void()> completion = {}) = 0;
    virtual bool isClosed() const noexcept = 0;

protected:
    ~Stream() override;
};

} // namespace fn::uv
