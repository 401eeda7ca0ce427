#include "foundation/uv/detail/pipe_stream_private.h"
#include "platform/peer_identity.h"
#include "platform/pipe_path.h"
#include <cerrno>
#include <sys/socket.h>
#include <sys/un.h>

// The system calls of a pipe, each made by libuv or by the simulated world.

namespace fn::uv {

void PipeStream::Private::openSocket()
{
    if (auto* system = loop()->system()) [[unlikely]] {
        _simulated = system->makeSocket(*this);
        return;
    }
    uv_pipe_init(loop()->handle(), &_pipe, 0);
    _pipe.data = this;
    _request.data = this;
}

int PipeStream::Private::listenSocket(int backlog)
{
    if (_simulated) [[unlikely]]
        return _simulated->listen(backlog);
    return uv_listen(stream(), backlog,
        [](uv_stream_t* stream, int code) { callGuarded([&] { of(stream->data).connectionWaits(code); }); });
}

int PipeStream::Private::acceptSocket(Private& peer)
{
    if (_simulated) [[unlikely]]
        return _simulated->accept(*peer._simulated);
    return uv_accept(stream(), peer.stream());
}

/// Accepts, past libuv, a connection that libuv has not accepted yet. UV_EAGAIN if none waits.
int PipeStream::Private::acceptPending(Private& peer)
{
    if (_simulated) [[unlikely]]
        return _simulated->accept(*peer._simulated);
    FileDescriptor socket(::accept4(descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) return UV_EAGAIN;
    const auto code = uv_pipe_open(&peer._pipe, socket.get());
    if (code == 0) socket.release();
    return code;
}

/// Tries once. `fn::IOException` for a name that cannot be an endpoint's.
int PipeStream::Private::connectSocket(const String& name)
{
    if (_simulated) [[unlikely]]
        return _simulated->connect(name);
    const auto address = platform::socketAddress(platform::pipePath(name));
    if (!_socket) _socket = FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool isDone =
        _socket && ::connect(_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    return isDone ? 0 : -errno;
}

int PipeStream::Private::adoptSocket()
{
    if (_simulated) [[unlikely]]
        return 0;
    const auto code = uv_pipe_open(&_pipe, _socket.get());
    if (code == 0) _socket.release();
    return code;
}

int PipeStream::Private::startSocketReads()
{
    if (_simulated) [[unlikely]] {
        _simulated->setReading(true);
        return 0;
    }
    const auto allocate = [](uv_handle_t* handle, std::size_t, uv_buf_t* buffer) {
        callGuarded([&] {
            const auto memory = of(handle->data).takeReadMemory();
            *buffer = { memory.data(), memory.size() };
        });
    };
    const auto read = [](uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
        callGuarded([&] { of(stream->data).onRead(count, { buffer->base, buffer->len }); });
    };
    return uv_read_start(stream(), allocate, read);
}

void PipeStream::Private::stopSocketReads()
{
    if (_simulated) [[unlikely]]
        return _simulated->setReading(false);
    uv_read_stop(stream());
}

/// Reads without waiting. Returns the bytes read, UV_EOF, UV_EAGAIN, or the code of an error.
std::ptrdiff_t PipeStream::Private::receive(std::span<char> memory)
{
    if (_simulated) [[unlikely]]
        return _simulated->receive(memory);
    const auto count = ::recv(descriptor(), memory.data(), memory.size(), MSG_DONTWAIT);
    if (count < 0) return errno == EINTR ? UV_EAGAIN : -errno;
    return count > 0 ? count : std::ptrdiff_t(UV_EOF);
}

/// Returns the bytes that the kernel took at once, or the code of an error.
std::ptrdiff_t PipeStream::Private::tryWrite(std::span<const uv_buf_t> parts)
{
    if (_simulated) [[unlikely]]
        return _simulated->tryWrite(parts);
    return uv_try_write(stream(), parts.data(), static_cast<unsigned>(parts.size()));
}

int PipeStream::Private::startWrite(std::span<const uv_buf_t> parts)
{
    if (_simulated) [[unlikely]]
        return _simulated->write(parts);
    return uv_write(&_request, stream(), parts.data(), static_cast<unsigned>(parts.size()),
        [](uv_write_t* request, int code) { callGuarded([&] { of(request->data).onWritten(code); }); });
}

std::size_t PipeStream::Private::unwritten() const noexcept
{
    return _simulated ? _simulated->unwritten() : uv_stream_get_write_queue_size(stream());
}

bool PipeStream::Private::isPeerHere() const noexcept
{
    if (_simulated) return _simulated->isPeerHere();
    try {
        return platform::peerIdentity(descriptor()).processId == ::getpid();
    } catch (const IOException&) { // Closed.
        return false;
    }
}

void PipeStream::Private::shutdownSocket()
{
    if (_simulated) [[unlikely]]
        _simulated->shutdown();
    else
        ::shutdown(descriptor(), SHUT_WR);
}

void PipeStream::Private::closeSocket()
{
    if (_simulated) [[unlikely]]
        return _simulated->close();
    uv_close(reinterpret_cast<uv_handle_t*>(&_pipe),
        [](uv_handle_t* handle) { callGuarded([&] { of(handle->data).onClosed(); }); });
}

} // namespace fn::uv
