#pragma once
#include "foundation/uv/detail/loop_private.h"
#include "foundation/uv/detail/pipe_endpoint.h"
#include "foundation/uv/detail/write_queue.h"
#include "foundation/uv/pipe_stream.h"
#include <list>

namespace fn::uv {

/// The part of a PipeStream that libuv knows.
///
///     Fresh -> Bound                          bind(), which listen() follows
///     Fresh -> Connected                      accept(), open()
///     Fresh -> Connecting -> Connected        connect(); back to Fresh if it fails
///     any   -> Closing -> Closed              close(); closed once libuv says so
///
/// A callback of the user is moved out of its member while it runs: the callback may close the stream, replace itself, or
/// release the last reference to the stream.
struct PipeStream::Private final : SharedMember, System::SocketUser {
    using ConnectionCallback = folly::Function<void(const Status&)>;

    explicit Private(Loop::Private& loop);

    void bind(const String& name);
    void listen(int backlog, ConnectionCallback callback);
    void listenEnd() noexcept;
    void listenStop() noexcept { _listenStopped = true; }
    void listenResume();
    void listenPending();
    Private* takeWaiting(); ///< The first connection that waits. The caller takes over the user's hold on it.
    void connect(const String& name, ConnectionCallback callback);
    void open(int descriptor);
    void requireFresh(const char* action) const;

    void readStart(ReadCallback callback);
    void readStop();
    void readResume();
    bool isReading() const noexcept { return _wantsRead && _state == State::Connected; }
    void readPending();
    void readEnd();
    void readInto(std::span<std::uint8_t> memory) noexcept { _readTarget = memory; }

    void write(const ByteArray& bytes, Completion&& completion);
    void whenQueuedAtMost(std::size_t bytes, folly::Function<void()> callback);
    std::size_t queuedBytes() const noexcept { return _queue.bytes() - takenOfRequest(); }
    std::uint64_t sentBytes() const noexcept { return _sentBytes + takenOfRequest(); }

    void close(folly::Function<void()> completion);
    void closeGently(Duration most, folly::Function<void()> completion);
    bool isClosed() const noexcept { return _state >= State::Closing; }
    bool isPeerHere() const noexcept;
    const String& endpointPath() const noexcept { return _endpoint.path(); }

    void flush() override;
    void loopIsEnding() override;

private:
    enum class State { Fresh, Bound, Connecting, Connected, Closing, Closed };

    uv_stream_t* stream() noexcept { return reinterpret_cast<uv_stream_t*>(&_pipe); }
    const uv_stream_t* stream() const noexcept { return reinterpret_cast<const uv_stream_t*>(&_pipe); }
    int descriptor() const noexcept;
    static Private& of(void* data) noexcept { return *static_cast<Private*>(data); }

    void adopt(int descriptor, State state, const char* action);
    void becomeConnected() noexcept;
    void connectionWaits(int code) override;
    void takeFromLibuv();
    void announcePeer(Hold<Private> peer, int code);
    bool isTrusted(const Private& peer) const noexcept;
    void announce(int code);
    void tryConnect(const String& name);
    void finishConnect(String message, int code);
    void reportConnected(const Status& status);

    void startReading();
    std::span<char> takeReadMemory() override;
    void onRead(std::ptrdiff_t count, std::span<char> memory) override;
    void deliver(std::ptrdiff_t count, const char* data);

    void send();
    void sendRest(std::span<uv_buf_t> parts);
    void onWritten(int code) override;
    void announceProgress();
    void reportProgress();
    bool hasDrained() const noexcept { return _onDrained && queuedBytes() <= _drainedAt; }
    std::size_t takenOfRequest() const noexcept;

    void onClosed() override;

    // The system calls of a pipe, made by libuv or by the simulated world (pipe_stream_system.cpp). Codes are libuv's.
    void openSocket();
    int listenSocket(int backlog);
    int acceptSocket(Private& peer);
    int acceptPending(Private& peer);
    int connectSocket(const String& name);
    int adoptSocket();
    int startSocketReads();
    void stopSocketReads();
    std::ptrdiff_t receive(std::span<char> memory);
    std::ptrdiff_t tryWrite(std::span<const uv_buf_t> parts);
    int startWrite(std::span<const uv_buf_t> parts);
    std::size_t unwritten() const noexcept;
    void shutdownSocket();
    void closeSocket();

    uv_pipe_t _pipe;
    State _state = State::Fresh;
    folly::Function<void()> _onClosed;

    PipeEndpoint _endpoint; // The path of a listener.
    ConnectionCallback _onConnection;
    int _backlog = 0;
    bool _listenStopped = false;
    bool _untaken = false; // libuv holds a connection, and accepts no other one until that one is taken.
    std::list<Private*> _waiting; // Connections taken from libuv, and held until the user takes them.
    std::list<int> _announcements; // Codes that `_onConnection` is to be called with.

    ConnectionCallback _onConnect;
    String _connectAction; // The action that an error of `connect()` names.
    FileDescriptor _socket; // The socket while it connects; then libuv owns it.
    std::int64_t _retryDelay = 0; // Milliseconds.
    Handle _timer; // For the next try to connect, or for the latest end of a gentle close.

    ReadCallback _onRead;
    std::span<std::uint8_t> _readTarget; // Memory of the user for the next read; empty: a buffer of the loop is used.
    bool _readsIntoTarget = false; // The read under way goes into memory of the user.
    bool _wantsRead = false;
    bool _delivering = false; // The read callback runs.
    bool _heldBack = false; // Reading was stopped because more arrived while the callback ran the loop again.

    WriteQueue _queue;
    uv_write_t _request; // Writes the bytes that the kernel did not take at once.
    std::size_t _requestBytes = 0; // Bytes given to `_request`; 0 while it is not in use.
    std::uint64_t _sentBytes = 0; // Without the bytes of `_request`.
    int _writeError = 0; // The code of a write that failed: all further writes fail with it.
    bool _flushPending = false;
    bool _endsWriting = false; // Once the queue is sent, the stream ends for the peer.
    std::size_t _sendAt = 0; // While a flush is pending: the queue is sent before it when it holds so many bytes.
    bool _reportPosted = false;
    folly::Function<void()> _onDrained; // To be called when at most `_drainedAt` bytes are queued.
    std::size_t _drainedAt = 0;
    std::unique_ptr<System::Socket> _simulated; // In place of `_pipe` and `_socket`; null in real life.
};

} // namespace fn::uv
