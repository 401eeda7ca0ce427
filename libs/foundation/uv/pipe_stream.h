#pragma once
#include "base/exceptions.h"
#include "foundation/uv/loop.h"
#include "foundation/uv/stream.h"

namespace fn::uv {

/// A local pipe, over a Unix-domain socket. Its name is `\\.\pipe\NAME`, its path what `platform::pipePath()` makes of that.
///
/// A listening or connected stream stays open until `close()` or until its last reference goes; libuv's memory lives until the
/// close has completed.
class FN_EXPORT PipeStream final : public Stream {
public:
    /// `passHandles` asks for a pipe that passes handles, which is not supported: true throws `fn::IOException`.
    explicit PipeStream(Loop& loop, bool passHandles = false);

    /// Makes the endpoint of that name (mode 0600, in a private folder). `fn::IOException` if the endpoint exists, or if the name
    /// is too long or cannot name one. Closing this stream removes the endpoint, unless another one has taken its place.
    void bind(const String& name);

    /// `callback` is called once for each connection that waits, or with an error of the listener. A peer of another user, except
    /// root, is refused with a log line, and `callback` is not called.
    void listen(int backlog, folly::Function<void(const Status&)> callback);

    /// From here on an attempt to connect fails with an error. Connections that wait already stay in the queue: `listenPending()`.
    void listenEnd();

    /// Pauses and goes on. Connections that are made meanwhile wait in the queue of `backlog`. The callback is called for them
    /// afterwards, for one that the loop has seen already before `listenResume()` returns.
    void listenStop();
    void listenResume(); ///< Accepts those who wait, and whoever comes.

    /// Calls the callback now for the connections that wait in the queue, at most as many as the queue holds, also while paused.
    void listenPending();

    /// Becomes the connection that the callback of `listener` announced. `fn::IOException` if none waits. Both are on one loop.
    void accept(PipeStream& listener);

    /// `callback` is called once, on a later turn, also with an error; it is not called if the stream is closed before. While the
    /// listener's queue is full, the stream tries again until the endpoint is gone. Writes made meanwhile are sent once the stream
    /// is connected. `fn::IOException` if the stream is already connecting, connected, listening or closed.
    void connect(const String& name, folly::Function<void(const Status&)> callback);

    /// Takes over a connected socket, and makes it close-on-exec.
    void open(int descriptor);

    void readStart(ReadCallback callback) override;
    void readStop() override;
    void readResume() override;
    bool isReading() const noexcept override;
    void readPending() override;

    /// Refuses what the peer writes from now on (its writes fail), and delivers what the peer has written before, followed by the
    /// end of the stream. No byte is lost in between. Does nothing while the stream is not connected.
    void readEnd();
    void readInto(std::span<std::uint8_t> memory) override;
    void write(ByteArray bytes, Completion completion = {}) override;
    void write(std::span<const ByteArray> parts, Completion completion = {}) override;
    void whenQueuedAtMost(std::size_t bytes, folly::Function<void()> callback) override;
    std::size_t queuedBytes() const noexcept override;
    std::uint64_t sentBytes() const noexcept override;
    void close(folly::Function<void()> completion = {}) override;
    bool isClosed() const noexcept override;

    /// Sends what is queued, ends the stream for the peer, discards what the peer sends until its own end, and then closes, at the
    /// latest after `most`. A `close()` with unread bytes would look to the peer like a broken connection. Unconnected: as `close()`.
    void closeGently(Duration most, folly::Function<void()> completion = {});

    /// Whether the process that has connected to this one's listener is this process itself. For an accepted connection.
    bool isPeerHere() const noexcept;

    String nativePath() const; ///< The socket's path after `bind()`; empty otherwise.

    struct Private;

protected:
    ~PipeStream() override;

private:
    Private* _private = nullptr; // Held by this object, and by libuv until the pipe is closed.
};

} // namespace fn::uv
