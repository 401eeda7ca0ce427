#include "foundation/uv/detail/pipe_stream_private.h"
#include "base/exceptions.h"
#include "foundation/logging/logging.h"
#include "platform/peer_identity.h"
#include "platform/pipe_path.h"
#include <algorithm>
#include <fcntl.h>
#include <sys/socket.h>

// Making, connecting and closing a pipe; pipe_stream_bytes.cpp reads and writes.

namespace fn::uv {
namespace {

constexpr std::int64_t longestRetryDelay = 100; // Milliseconds.

// Bytes that the kernel takes from a writer before the other side has read any. The system's bound is net.core.wmem_max.
constexpr int kernelBufferBytes = 512 * 1024;

FN_LOG_CATEGORY("uv.pipe");

int codeOf(const IOException& exception)
{
    const auto* const error = exception.find<ErrnoInfo>();
    return error ? -*error : UV_EIO;
}

} // namespace

PipeStream::Private::Private(Loop::Private& loop) : SharedMember(loop, 2) // For user and libuv.
{
    openSocket();
}

void PipeStream::Private::requireFresh(const char* action) const
{
    if (isClosed()) Status(action, UV_ECANCELED).throwOnError();
    if (_state != State::Fresh) Status(action, UV_EISCONN).throwOnError();
}

int PipeStream::Private::descriptor() const noexcept
{
    uv_os_fd_t descriptor = -1;
    uv_fileno(reinterpret_cast<const uv_handle_t*>(&_pipe), &descriptor);
    return descriptor;
}

void PipeStream::Private::adopt(int descriptor, State state, const char* action)
{
    Status(action, uv_pipe_open(&_pipe, descriptor)).throwOnError();
    _state = state;
}

void PipeStream::Private::becomeConnected() noexcept
{
    _state = State::Connected;
    if (!_simulated) ::setsockopt(descriptor(), SOL_SOCKET, SO_SNDBUF, &kernelBufferBytes, sizeof(kernelBufferBytes));
}

void PipeStream::Private::open(int descriptor)
{
    requireFresh("open a pipe");
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    adopt(descriptor, State::Connected, "open a pipe");
}

void PipeStream::Private::bind(const String& name)
{
    requireFresh("bind a pipe");
    if (_simulated) {
        Status("bind a pipe", _simulated->bind(name)).throwOnError();
        _state = State::Bound;
        return;
    }
    PipeEndpoint endpoint(platform::pipePath(name));
    try {
        adopt(endpoint.descriptor(), State::Bound, "bind a pipe");
    } catch (...) {
        endpoint.remove();
        throw;
    }
    endpoint.releaseDescriptor();
    _endpoint = std::move(endpoint);
}

void PipeStream::Private::listen(int backlog, ConnectionCallback callback)
{
    _onConnection = std::move(callback);
    _backlog = backlog;
    Status("listen on a pipe", listenSocket(backlog)).throwOnError();
}

void PipeStream::Private::connectionWaits(int code)
{
    if (code < 0) return announce(code);
    _untaken = true;
    if (!_listenStopped) takeFromLibuv();
}

void PipeStream::Private::listenEnd() noexcept
{
    if (_state == State::Bound && !_simulated)
        ::shutdown(descriptor(), SHUT_RD); // A simulated listener goes on until closed.
}

void PipeStream::Private::listenResume()
{
    const auto self = hold(this);
    _listenStopped = false;
    if (_untaken) takeFromLibuv();
}

void PipeStream::Private::listenPending()
{
    const auto self = hold(this);
    if (_untaken) takeFromLibuv();
    for (int count = 0; count <= _backlog && _state == State::Bound; ++count) { // One more than `_backlog` may wait.
        Hold<Private> peer(new Private(*loop()));
        const auto code = acceptPending(*peer);
        if (code == UV_EAGAIN) return; // Nobody waits, or libuv will meet the same error.
        announcePeer(std::move(peer), code);
    }
}

/// Accepts the connection at once, whether or not `accept()` takes it later: its user is checked before the callback is called.
void PipeStream::Private::takeFromLibuv()
{
    Hold<Private> peer(new Private(*loop()));
    _untaken = false;
    const auto code = acceptSocket(*peer);
    announcePeer(std::move(peer), code);
}

void PipeStream::Private::announcePeer(Hold<Private> peer, int code)
{
    if (code == 0) {
        peer->becomeConnected();
        if (isTrusted(*peer)) {
            _waiting.push_back(peer.release());
            return announce(0);
        }
    }
    peer->close({});
    if (code < 0) announce(code);
}

bool PipeStream::Private::isTrusted(const Private& peer) const noexcept
{
    if (_simulated) return true; // All processes of that world have one user.
    try {
        const auto identity = platform::peerIdentity(peer.descriptor());
        if (identity.isOwnUserOrRoot()) return true;
        FN_LOG(Warning, "Refused a connection to {} from user {} (process {})", _endpoint.path(), identity.userId,
            identity.processId);
    } catch (...) {
        unhandledException();
    }
    return false;
}

void PipeStream::Private::announce(int code)
{
    _announcements.push_back(code);
    while (!_announcements.empty() && _onConnection) {
        const auto next = takeFirst(_announcements);
        auto callback = std::exchange(_onConnection, {});
        callGuarded(callback, next < 0 ? Status("accept a connection", next) : Status());
        if (!isClosed() && !_onConnection) _onConnection = std::move(callback);
    }
}

PipeStream::Private* PipeStream::Private::takeWaiting()
{
    if (_waiting.empty()) Status("accept a connection", UV_EAGAIN).throwOnError();
    return takeFirst(_waiting);
}

void PipeStream::Private::connect(const String& name, ConnectionCallback callback)
{
    requireFresh("connect to a pipe");
    _state = State::Connecting;
    _onConnect = std::move(callback);
    _connectAction = fmt::format("connect to {}", name);
    _retryDelay = 1;
    tryConnect(name);
}

void PipeStream::Private::tryConnect(const String& name)
{
    int code = 0;
    try {
        code = connectSocket(name);
    } catch (const IOException& exception) {
        return finishConnect(exception.message(), codeOf(exception));
    }
    if (code != UV_EAGAIN) return finishConnect(_connectAction, code);
    // The listener's queue is full. Once the endpoint is gone, the next try ends with another error.
    _timer = loop()->schedule(Duration::milliseconds(_retryDelay), [this, name] { tryConnect(name); });
    _retryDelay = std::min(_retryDelay * 2, longestRetryDelay);
}

void PipeStream::Private::finishConnect(String message, int code)
{
    if (code == 0) code = adoptSocket();
    if (code == 0) becomeConnected();
    loop()->post([held = hold(this), status = Status(std::move(message), code)] { held->reportConnected(status); });
}

void PipeStream::Private::reportConnected(const Status& status)
{
    if (isClosed()) return;
    if (status.ok()) {
        flush();
    } else {
        _state = State::Fresh;
        _socket = FileDescriptor();
        _queue.fail(status.code());
        announceProgress();
    }
    auto callback = std::exchange(_onConnect, {});
    if (callback) callGuarded(callback, status.ok() ? Status() : status);
}

void PipeStream::Private::close(folly::Function<void()> completion)
{
    if (isClosed()) return;
    flush();
    const auto taken = takenOfRequest();
    _requestBytes = 0;
    _sentBytes += taken;
    _queue.sent(taken);
    _state = State::Closing;
    _wantsRead = false;
    _endpoint.remove();
    _timer.invalidate();
    _announcements = {};
    _onClosed = std::move(completion);
    closeSocket();
    while (!_waiting.empty()) {
        const Hold<Private> peer(takeFirst(_waiting));
        peer->close({});
    }
    // The callbacks are destroyed last: they may hold the last reference to this stream.
    const auto onRead = std::exchange(_onRead, {});
    const auto onConnection = std::exchange(_onConnection, {});
    const auto onConnect = std::exchange(_onConnect, {});
    const auto onDrained = std::exchange(_onDrained, {});
}

void PipeStream::Private::closeGently(Duration most, folly::Function<void()> completion)
{
    if (_state != State::Connected) return close(std::move(completion));
    _onClosed = std::move(completion);
    _readTarget = {};
    readStart([this](std::ptrdiff_t count, const std::uint8_t*) {
        if (count < 0) close(std::exchange(_onClosed, {}));
    });
    _endsWriting = true;
    flush();
    _timer = loop()->schedule(most, [this] { close(std::exchange(_onClosed, {})); });
}

void PipeStream::Private::onClosed()
{
    const Hold<Private> libuv(this);
    _state = State::Closed;
    _queue.fail(UV_ECANCELED);
    _queue.complete();
    auto completion = std::exchange(_onClosed, {});
    if (completion) callGuarded(completion);
}

void PipeStream::Private::loopIsEnding()
{
    close({});
    _queue.drop();
    const auto completion = std::exchange(_onClosed, {});
}

} // namespace fn::uv
