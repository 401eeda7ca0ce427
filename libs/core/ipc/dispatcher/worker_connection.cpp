#include "core/ipc/dispatcher/worker_connection.h"
#include "core/ipc/limits.h"
#include "core/ipc/wire/detail/message_codec.h"
#include "foundation/time/clock.h"
#include "foundation/uv/timer.h"
#include <algorithm>
#include <cerrno>

#define LOG(priority, ...) \
    FN_LOG_TO(Dispatcher::_fn_getLoggingCategoryStatic(), priority, Dispatcher::_fn_getLoggingTagStatic(), \
        "libs/core/ipc/dispatcher", __VA_ARGS__)

namespace ipc {
namespace {

// Of the loop, behind the time-out. They take no time, and a few are enough for all that is ready.
constexpr int turnsOfGrace = 10;

// A loop whose timers are so late has not run meanwhile: then the whole time once more.
constexpr auto starvedFrom = fn::Duration::milliseconds(10);

} // namespace

Dispatcher::WorkerConnection::WorkerConnection(Dispatcher& dispatcher, WorkerIds::Listener listener)
    : _dispatcher(dispatcher),
      _listener(std::move(listener)),
      _messageHelper(limits::hubFrameBytes)
{
    // Each handler holds the connection for its duration: it may be closed and dropped in it.
    _messageHelper.onEOS()
        .connect([this] {
            const fn::AutoPtr self(this);
            _dispatcher.onWorkerEOS(self);
        })
        .detach();
    _messageHelper.onReadError()
        .connect([this](const fn::uv::Status& status) {
            const fn::AutoPtr self(this);
            // A peer that has ended or died with something unread.
            const bool isEnd = status.code() == -ECONNRESET || status.code() == -EPIPE;
            LOG(isEnd ? 5 : 1, "Received read error {} from {}", status.what(), _info.displayName);
            _dispatcher.onWorkerEOS(self);
        })
        .detach();
    _messageHelper.setFrameHandler([this](const FrameBody& body) { return handle(body); });
}

void Dispatcher::WorkerConnection::accept(fn::uv::PipeStream& listener)
{
    _stream = fn::makeAuto<fn::uv::PipeStream>(_dispatcher._loop, false);
    _stream->accept(listener);
    _helloTimer = fn::uv::Timer::schedule(_dispatcher._loop, limits::helloTimeout, [this] { onHelloOverdue(); });
    _messageHelper.setStream(_stream);
}

/// Whatever a handler throws ends this connection, and nobody else's.
bool Dispatcher::WorkerConnection::handle(const FrameBody& body)
{
    ++_framesReceived;
    _bytesReceived += FrameOutputStream::headerBytes + body.bytes.size();
    const auto message = MessageView::parse(body);
    if (!message) return false;
    const Connection self(this);
    try {
        _dispatcher.onWorkerMessage(self, *message);
    } catch (const std::exception& exception) {
        _dispatcher.closeConnection(self, exception.what());
    } catch (...) {
        _dispatcher.closeConnection(self, "unknown exception");
    }
    return true;
}

void Dispatcher::WorkerConnection::identify(WorkerInfo info)
{
    _info = std::move(info);
    _isIdentified = true;
    _helloTimer.invalidate();
    if (isOwnWorker()) _messageHelper.setMaxReadBytes(limits::workerFrameBytes);
}

Dispatcher::WorkerStatistics Dispatcher::WorkerConnection::statistics() const
{
    return { _info, _framesReceived, _bytesReceived, _framesSent, _stream->sentBytes(), _stream->queuedBytes() };
}

void Dispatcher::WorkerConnection::onHelloOverdue()
{
    const fn::AutoPtr self(this);
    _stream->readPending();
    if (!_isIdentified && !isClosed()) _dispatcher.closeConnection(self, "it has not said HELLO in time");
}

void Dispatcher::WorkerConnection::send(const Frame& frame)
{
    if (isClosed()) return;
    ++_framesSent;
    _messageHelper.send(frame);
    if (_stream->queuedBytes() > _dispatcher._limits.stalledQueueBytes) [[unlikely]]
        watchQueue();
}

void Dispatcher::WorkerConnection::close()
{
    _helloTimer.invalidate();
    _notRespondingTimer.invalidate();
    _pingTimer.invalidate();
    _queueTimer.invalidate();
    if (_stream) _stream->close();
    resumeSenders();
}

// --- Pings

void Dispatcher::WorkerConnection::schedulePing()
{
    _notRespondingTimer.invalidate();
    _isPongAwaited = false;
    const auto interval = std::max<std::int64_t>(_dispatcher._timeout.totalMilliseconds(0) / 3, 1);
    _pingTimer =
        fn::uv::Timer::schedule(_dispatcher._loop, fn::Duration::milliseconds(interval), [this] { onPingDue(); });
}

void Dispatcher::WorkerConnection::onPingDue()
{
    _isPongAwaited = true;
    _turnsLeft = turnsOfGrace;
    _wasReported = false;
    awaitPong(_dispatcher._timeout);
    send(encodeMessage(type::PING, {}, limits::workerFrameBytes));
}

void Dispatcher::WorkerConnection::awaitPong(fn::Duration time)
{
    // While this connection is not read for another's sake its silence means nothing.
    if (_pauses > 0) return;
    _pongDue = _dispatcher._loop.clock().monotonic() + time;
    _notRespondingTimer = fn::uv::Timer::schedule(_dispatcher._loop, time, [this] { onPongOverdue(); });
}

void Dispatcher::WorkerConnection::onPongOverdue()
{
    const fn::AutoPtr self(this);
    _stream->readPending();
    // What was read may have paused this connection before its PONG: it is waited for again once that is over.
    if (!_isPongAwaited || _pauses > 0 || isClosed() || _wasReported) return;
    // A loop that has not run has kept the workers of its own process from answering.
    if (_turnsLeft > 0) {
        const bool isStarved = _dispatcher._loop.clock().monotonic() > _pongDue + starvedFrom;
        _turnsLeft = isStarved ? 0 : _turnsLeft - 1;
        return awaitPong(isStarved ? _dispatcher._timeout : fn::Duration());
    }
    _wasReported = true;
    _dispatcher._onWorkerNotResponding.fire(_info);
}

// --- The queue

void Dispatcher::WorkerConnection::watchQueue()
{
    if (isOwnWorker()) return;
    if (_stream->queuedBytes() > _dispatcher._limits.queueBytes) {
        // Not inside the send: the sender is still walking the tables.
        _dispatcher._loop.post([self = fn::AutoPtr(this)] { self->closeStalled(); });
        return;
    }
    if (_queueTimer) return;
    // Looked at in a task: room in the kernel is found only after the timers.
    const auto due = _dispatcher._loop.clock().monotonic() + _dispatcher._timeout;
    _queueTimer = fn::uv::Timer::schedule(
        _dispatcher._loop, _dispatcher._timeout, [this, due, sentBefore = _stream->sentBytes()] {
            const bool isStarved = _dispatcher._loop.clock().monotonic() > due + starvedFrom;
            _dispatcher._loop.post(
                [self = fn::AutoPtr(this), sentBefore, isStarved] { self->onQueueWatched(sentBefore, isStarved); });
        });
}

void Dispatcher::WorkerConnection::onQueueWatched(std::uint64_t sentBefore, bool isStarved)
{
    if (isClosed()) return;
    _queueTimer = {};
    if (_stream->queuedBytes() <= _dispatcher._limits.stalledQueueBytes) return;
    if (_stream->sentBytes() == sentBefore && !isStarved)
        closeStalled();
    else
        watchQueue();
}

void Dispatcher::WorkerConnection::closeStalled()
{
    if (isClosed()) return;
    const fn::AutoPtr self(this);
    if (!_wasReported) _dispatcher._onWorkerNotResponding.fire(_info);
    _wasReported = true;
    const auto reason = fmt::format("it does not take the {} bytes that wait for it", _stream->queuedBytes());
    if (!isClosed()) _dispatcher.closeConnection(self, reason.c_str());
}

void Dispatcher::WorkerConnection::slowDown(const fn::AutoPtr<WorkerConnection>& sender)
{
    if (isClosed() || _stream->queuedBytes() <= _dispatcher._limits.pausingQueueBytes || isOwnWorker()
        || sender->isOwnWorker())
        return;
    if (std::ranges::find(_waitingSenders, sender) != _waitingSenders.end()) return;
    if (_waitingSenders.empty()) {
        _stream->whenQueuedAtMost(_dispatcher._limits.pausingQueueBytes / 2, [this] { resumeSenders(); });
    }
    _waitingSenders.push_back(sender);
    sender->pause();
}

void Dispatcher::WorkerConnection::pause()
{
    if (_pauses++ > 0 || isClosed()) return;
    _stream->readStop();
    _notRespondingTimer.invalidate();
}

void Dispatcher::WorkerConnection::resume()
{
    if (--_pauses > 0 || isClosed()) return;
    _stream->readResume();
    if (_isPongAwaited) awaitPong(_dispatcher._timeout);
}

void Dispatcher::WorkerConnection::resumeSenders()
{
    for (const auto& sender : std::exchange(_waitingSenders, {})) sender->resume();
}

} // namespace ipc
