#include "foundation/uv/detail/pipe_stream_private.h"
#include <algorithm>
#include <array>
#include <climits>
#include <sys/socket.h>

// Reading and writing of a pipe.

namespace fn::uv {
namespace {

// Most reads of one readPending(), which ends even if the peer writes as fast as this side reads.
constexpr int mostReadsAtOnce = 32;

// A turn that writes much sends in portions, so that the receiver works meanwhile. The first portions are small, so that a sleeping
// receiver is woken early; their growth keeps the number of system calls low.
constexpr std::size_t firstPortion = 2 * 1024;
constexpr std::size_t portionGrowth = 4;
constexpr std::size_t largestPortion = 128 * 1024;

} // namespace

void PipeStream::Private::readStart(ReadCallback callback)
{
    if (_state != State::Connected) Status("read from a pipe", UV_ENOTCONN).throwOnError();
    const auto previous = std::exchange(_onRead, std::move(callback)); // Destroyed last: that may run any code.
    _wantsRead = true;
    startReading();
}

void PipeStream::Private::readStop()
{
    _wantsRead = false;
    stopSocketReads();
}

void PipeStream::Private::readResume()
{
    if (!_onRead && !_delivering) return;
    _wantsRead = true;
    startReading();
}

void PipeStream::Private::startReading()
{
    const auto code = startSocketReads();
    if (code != UV_EALREADY) Status("read from a pipe", code).throwOnError();
}

/// Gives no memory while a read is being delivered; libuv then calls `onRead()` with UV_ENOBUFS.
std::span<char> PipeStream::Private::takeReadMemory()
{
    if (_delivering) return {};
    _readsIntoTarget = !_readTarget.empty();
    if (!_readsIntoTarget) return { loop()->takeReadBuffer().release(), Loop::Private::ReadBufferSize };
    const auto target = std::exchange(_readTarget, {});
    return { reinterpret_cast<char*>(target.data()), target.size() };
}

void PipeStream::Private::onRead(std::ptrdiff_t count, std::span<char> memory)
{
    if (_delivering) {
        stopSocketReads();
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
    const auto self = hold(this);
    for (int reads = 0; reads < mostReadsAtOnce && isReading() && !_delivering; ++reads) {
        const auto memory = takeReadMemory();
        const auto count = receive(memory);
        onRead(count == UV_EAGAIN ? 0 : count, memory);
        if (count == UV_EAGAIN) return;
    }
}

void PipeStream::Private::readEnd()
{
    if (_state != State::Connected) return;
    if (!_simulated) ::shutdown(descriptor(), SHUT_RD); // A simulated peer's writes fail only once this end is closed.
    readPending();
}

void PipeStream::Private::write(const ByteArray& bytes, Completion&& completion)
{
    if (isClosed()) {
        if (_state == State::Closing)
            _queue.push({}, std::move(completion)); // Completes behind the writes before it.
        else if (loop())
            _queue.refuse(std::move(completion), UV_ECANCELED);
        return announceProgress();
    }
    if (_requestBytes == 0 && !_flushPending) {
        loop()->flushLater(*this);
        _flushPending = true;
        _sendAt = firstPortion;
    }
    _queue.push(bytes, std::move(completion));
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
        const auto result = batch.bytes > 0 ? tryWrite({ parts.data(), batch.parts }) : 0;
        if (result < 0 && result != UV_EAGAIN) {
            _writeError = static_cast<int>(result);
            continue;
        }
        const auto taken = static_cast<std::size_t>(std::max<std::ptrdiff_t>(result, 0));
        _sentBytes += taken;
        _queue.sent(taken);
        if (taken < batch.bytes) return sendRest(parts);
    }
    if (_endsWriting) shutdownSocket();
}

// The kernel's buffer is full: libuv writes the rest when there is room.
void PipeStream::Private::sendRest(std::span<uv_buf_t> parts)
{
    const auto batch = _queue.gather(parts);
    const auto code = startWrite(parts.first(batch.parts));
    if (code == 0)
        _requestBytes = batch.bytes;
    else
        _queue.fail(_writeError = code);
}

void PipeStream::Private::onWritten(int code)
{
    if (isClosed()) return; // `onClosed()` finishes the writes that are left.
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
    const auto previous = std::exchange(_onDrained, std::move(callback)); // Destroyed last: that may run any code.
    _drainedAt = bytes;
    announceProgress();
}

// Completions and `_onDrained` are called from the loop, never inside a call that the user makes.
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
    return _requestBytes > 0 ? _requestBytes - unwritten() : 0;
}

} // namespace fn::uv
