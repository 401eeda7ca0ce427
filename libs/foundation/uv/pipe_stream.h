#pragma once
#include "base/exceptions.h"
#include "foundation/uv/loop.h"
#include "foundation/uv/stream.h"

namespace fn::uv {

/// A local pipe by name (`\\.\pipe\NAME`): here a Unix-domain socket that `platform::pipePath()` maps the name to.
///
/// A listening or connected stream is kept open until `close()` or its last reference goes; libuv's memory lives until the
/// close has completed.
class FN_EXPORT PipeStream final : public Stream {
public:
    /// `passHandles` is the flag of handle-passing pipes; only false is supported.
    explicit PipeStream(Loop& loop, bool passHandles = false);

    /// Makes the endpoint of that name (mode 0600, in a private folder). `fn::IOException` if it exists, if the name cannot
    /// be an endpoint or is too long. Closing removes the endpoint only while it is still this one.
    void bind(const String& name);

    /// `callback` is called once per waiting connection, with the listener's status. Peers of another user (root excepted)
    /// are refused with a log line before it hears of them.
    void listen(int backlog, folly::Function<void(const Status&)> callback);

    /// From here on nobody can connect, and is told so. Who waits in the queue still does: `listenPending()`.
    void listenEnd();

    /// Pauses and goes on: who connects meanwhile waits in the queue of `backlog`, and the callback hears of him afterwards,
    /// of the first before `listenResume()` returns.
    void listenStop();
    void listenResume();

    /// Calls back now for whoever waits in the queue, at most as many as it holds, also while paused.
    void listenPending();

    /// Takes the waiting connection that `listener`'s callback announced; none waits: `fn::IOException`. Same loop.
    void accept(PipeStream& listener);

    /// `callback` is called once, on a later turn, unless the stream is closed before. What can go wrong reaches it. A full
    /// queue of the listener is waited for while the endpoint exists. Writes made meanwhile leave once it is connected.
    void connect(const String& name, folly::Function<void(const Status&)> callback);

    /// Adopts a connected socket, and makes it close-on-exec.
    void open(int descriptor);

    void readStart(ReadCallback callback) override;
    void readStop() override;
    void readResume() override;
    bool isReading() const noexcept override;
    void readPending() override;

    /// Takes nothing more that the peer writes, who is told so, and reads what it has written before: behind that the read
    /// callback hears of the end. Nothing is lost in between. While it is not connected: nothing.
    void readEnd();
    void readInto(std::span<std::uint8_t> memory) override;
    void write(ByteArray bytes, Completion completion = {}) override;
    void write(std::span<const ByteArray> parts, Completion completion = {}) override;
    void whenQueuedAtMost(std::size_t bytes, folly::Function<void()> callback) override;
    std::size_t queuedBytes() const noexcept override;
    std::uint64_t sentBytes() const noexcept override;
    void close(folly::Function<void()> completion = {}) override;
    bool isClosed() const noexcept override;

    /// Sends what is queued, ends the stream for the peer, discards what comes until the peer's end, and closes; after `most` in
    /// any case. A close with bytes unread would look to the peer like a broken connection. While it is not connected: `close()`.
    void closeGently(Duration most, folly::Function<void()> completion = {});

    String nativePath() const; ///< The socket's path after `bind()`; empty otherwise.

    struct Private;

protected:
    ~PipeStream() override;

private:
    Private* _private; // Owned; outlives this object until libuv has closed.
};

} // namespace fn::uv
