#include "foundation/uv/pipe_stream_private.h"
#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <sys/socket.h>

// Reading and writing of a pipe.

namespace fn::uv {
namespace {

// Bound on the reads of one readPending(): it ends though the peer sends as fast as it is read.
constexpr int mostReadsAtOnce = 32;

// A turn that writes much sends it in portions, so that the receiver works meanwhile. The first ones are small, for it may be
// asleep; their growth keeps the number of system calls low.
constexpr std::size_t firstPortion = 2 * 1024;
constexpr std::size_t portionGrowth = 4;
constexpr std::size_t largestPortion = 128 * 1024;

} // namespace

void PipeStream::Private::readStart(ReadCallback callback)
{
    if (_state != State::Connected) Status("read from a pipe", UV_ENOTCONN).throwOnError();
    const auto previous = std::exchange(_onRead, std::move(callback)); // Goes last: its end may do anything.
    _wantsRead = true;
    startReading();
}

void PipeStream::Private::readStop()
{
    _wantsRead = false;
    uv_read_stop(stream());
}

void PipeStream::Private::readResume()
{
    if (!_onRead && !_delivering) return;
    _wantsRead = true;
    startReading();
}

void PipeStream::Private::startReading()
{
    const auto allocate = [](uv_handle_t* handle, std::size_t, uv_buf_t* buffer) {
        auto& self = of(handle->data);
        if (self._delivering) return; // Told to `onRead()` as UV_ENOBUFS.
        callGuarded([&] {
            const auto memory = self.takeReadMemory();
            *buffer = { memory.data(), memory.size() };
        });
    };
    const auto read = [](uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
        callGuarded([&] { of(stream->data).onRead(count, { buffer->base, buffer->len }); });
    };
    const auto code = uv_read_start(stream(), allocate, read);
    if (code != UV_EALREADY) Status("read from a pipe", code).throwOnError();
}

std::span<char> PipeStream::Private::takeReadMemory()
{
    _readsIntoTarget = !_readTarget.empty();
    if (!_readsIntoTarget) return { loop()->takeReadBuffer().release(), Loop::Private::ReadBufferSize };
    const auto target = std::exchange(_readTarget, {});
    return { reinterpret_cast<char*>(target.data()), target.size() };
}

void PipeStream::Private::onRead(std::ptrdiff_t count, std::span<char> memory)
{
    if (_delivering) {
        uv_read_stop(stream());
        _heldBack = true;
        return;
    }
    auto* const loop = this->loop();
    const bool isTarget = std::exchange(_readsIntoTarget, false);
    std::unique_ptr<char[]> buffer(isTarget ? nullptr : memory.data());
    if (count != 0)
        deliver(count, memory.data());
    else if (isTarget)
        _readTarget = { reinterpret_cast<std::uint8_t*>(memory.data()), memory.size() };
    if (buffer) loop->returnReadBuffer(std::move(buffer));
}

void PipeStream::Private::deliver(std::ptrdiff_t count, const char* data)
{
    if (count < 0) readStop();
    auto callback = std::exchange(_onRead, {});
    _delivering = true;
    callGuarded(callback, count, reinterpret_cast<const std::uint8_t*>(data));
    _delivering = false;
    if (count >= 0 && !isClosed() && !_onRead) _onRead = std::move(callback);
    if (std::exchange(_heldBack, false) && isReading()) startReading();
}

void PipeStream::Private::readPending()
{
    for (int reads = 0; reads < mostReadsAtOnce && isReading() && !_delivering; ++reads) {
        const auto memory = takeReadMemory();
        const auto count = ::recv(descriptor(), memory.data(), memory.size(), MSG_DONTWAIT);
        const auto error = count < 0 ? errno : 0;
        const bool isOver = error == EAGAIN || error == EINTR;
        onRead(isOver ? 0 : error > 0 ? -error : count > 0 ? count : std::ptrdiff_t(UV_EOF), memory);
        if (error == EAGAIN) return;
    }
}

void PipeStream::Private::readEnd()
{
    if (_state != State::Connected) return;
    ::shutdown(descriptor(), SHUT_RD);
    readPending();
}

void PipeStream::Private::write(ByteArray bytes, Completion completion)
{
    if (isClosed()) {
        if (_state == State::Closing)
            _queue.push({}, std::move(completion)); // Finished behind those before it.
        else if (loop())
            _queue.refuse(std::move(completion), UV_ECANCELED);
        return announceProgress();
    }
    if (_requestBytes == 0 && !_flushPending) {
        loop()->flushLater(*this);
        _flushPending = true;
        _sendAt = firstPortion;
    }
    _queue.push(std::move(bytes), std::move(completion));
    if (_requestBytes == 0 && _queue.bytes() >= _sendAt && _state == State::Connected) {
        _sendAt = std::min(_sendAt * portionGrowth, largestPortion);
        send();
    }
}

void PipeStream::Private::flush()
{
    _flushPending = false;
    send();
    announceProgress();
}

void PipeStream::Private::send()
{
    if (isClosed() || _state == State::Connecting || _requestBytes > 0) return;
    if (_state != State::Connected) return _queue.fail(UV_ENOTCONN);
    std::array<uv_buf_t, IOV_MAX> parts; // NOLINT: filled as far as it is used.
    while (!_queue.empty()) {
        if (_writeError < 0) return _queue.fail(_writeError);
        const auto batch = _queue.gather(parts);
        const int result = batch.bytes > 0 ? uv_try_write(stream(), parts.data(), batch.parts) : 0;
        if (result < 0 && result != UV_EAGAIN) {
            _writeError = result;
            continue;
        }
        const auto taken = static_cast<std::size_t>(std::max(result, 0));
        _sentBytes += taken;
        _queue.sent(taken);
        if (taken < batch.bytes) return sendRest(parts);
    }
    if (_endsWriting) ::shutdown(descriptor(), SHUT_WR);
}

// The kernel is full: libuv goes on when there is room.
void PipeStream::Private::sendRest(std::span<uv_buf_t> parts)
{
    const auto batch = _queue.gather(parts);
    const auto onWritten = [](uv_write_t* request, int code) {
        callGuarded([&] { of(request->data).onWritten(code); });
    };
    const auto code = uv_write(&_request, stream(), parts.data(), batch.parts, onWritten);
    if (code == 0)
        _requestBytes = batch.bytes;
    else
        _queue.fail(_writeError = code);
}

void PipeStream::Private::onWritten(int code)
{
    if (isClosed()) return; // What is left is finished when libuv has closed.
    const auto bytes = std::exchange(_requestBytes, 0);
    if (code < 0) {
        _writeError = code;
    } else {
        _sentBytes += bytes;
        _queue.sent(bytes);
    }
    send();
    reportProgress();
}

void PipeStream::Private::whenQueuedAtMost(std::size_t bytes, folly::Function<void()> callback)
{
    if (isClosed()) return;
    const auto previous = std::exchange(_onDrained, std::move(callback)); // Goes last: its end may do anything.
    _drainedAt = bytes;
    announceProgress();
}

// Callbacks are called from the loop, never from inside of a call of the user.
void PipeStream::Private::announceProgress()
{
    if (_reportPosted || !loop() || (!_queue.hasFinished() && !hasDrained())) return;
    _reportPosted = true;
    loop()->post([held = hold(this)] {
        held->_reportPosted = false;
        held->reportProgress();
    });
}

void PipeStream::Private::reportProgress()
{
    _queue.complete();
    if (!hasDrained()) return;
    auto callback = std::exchange(_onDrained, {});
    callGuarded(callback);
}

std::size_t PipeStream::Private::takenOfRequest() const noexcept
{
    return _requestBytes > 0 ? _requestBytes - uv_stream_get_write_queue_size(stream()) : 0;
}

} // namespace fn::uv
