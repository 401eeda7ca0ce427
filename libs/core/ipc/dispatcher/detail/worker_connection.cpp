#include "core/ipc/dispatcher/detail/worker_connection.h"
#include "core/ipc/limits.h"
#include "core/ipc/wire/detail/message_codec.h"
#include "foundation/time/clock.h"
#include "foundation/uv/timer.h"
#include <algorithm>
#include <cerrno>

namespace ipc {
namespace {

FN_LOG_CATEGORY("ipc.dispatcher");

// After the time-out a PONG may come this many turns of the loop later. The turns do not wait; a few of them are enough to read
// everything that has arrived.
constexpr int turnsOfGrace = 10;

// A timer that fires this late shows that the loop was blocked: then the worker gets the whole time-out again.
constexpr auto starvedFrom = fn::Duration::milliseconds(10);

} // namespace

Hub::WorkerConnection::WorkerConnection(Hub& hub, WorkerIds::Listener listener)
    : _hub(hub),
      _listener(std::move(listener)),
      _messageHelper(limits::hubFrameBytes)
{
    // Each handler holds this connection while it runs: the hub may close and drop the connection inside it.
    _messageHelper.onEOS()
        .connect([this] {
            const fn::AutoPtr self(this);
            _hub.onWorkerEOS(self);
        })
        .detach();
    _messageHelper.onReadError()
        .connect([this](const fn::uv::Status& status) {
            const fn::AutoPtr self(this);
            // The peer's process has ended before it had read everything: no fault.
            const bool isEnd = status.code() == -ECONNRESET || status.code() == -EPIPE;
            if (isEnd)
                FN_LOG(Debug, "Received read error {} from {}", status.what(), _info.displayName);
            else
                FN_LOG(Error, "Received read error {} from {}", status.what(), _info.displayName);
            _hub.onWorkerEOS(self);
        })
        .detach();
    _messageHelper.setFrameHandler([this](const FrameBody& body) { return handle(body); });
}

void Hub::WorkerConnection::accept(fn::uv::PipeStream& listener)
{
    _stream = fn::makeAuto<fn::uv::PipeStream>(_hub._loop, false);
    _stream->accept(listener);
    _isHere = _stream->isPeerHere();
    _helloTimer = fn::uv::Timer::schedule(_hub._loop, limits::helloTimeout, [this] { onHelloOverdue(); });
    _messageHelper.setStream(_stream);
}

/// An exception of the hub's handler closes this connection, and no other one.
bool Hub::WorkerConnection::handle(const FrameBody& body)
{
    ++_framesReceived;
    _bytesReceived += FrameOutputStream::headerBytes + body.bytes.size();
    const MessageView message(body);
    if (!message.isValid()) return false;
    const Connection self(this);
    try {
        _hub.onWorkerMessage(self, message);
    } catch (const std::exception& exception) {
        _hub.closeConnection(self, exception.what());
    } catch (...) {
        _hub.closeConnection(self, "unknown exception");
    }
    return true;
}

void Hub::WorkerConnection::identify(WorkerInfo info)
{
    _info = std::move(info);
    _helloTimer.invalidate();
    if (isOwnWorker()) _messageHelper.setMaxReadBytes(limits::workerFrameBytes);
}

Hub::WorkerStatistics Hub::WorkerConnection::statistics() const
{
    return { _info, _framesReceived, _bytesReceived, _framesSent, _stream->sentBytes(), _stream->queuedBytes() };
}

void Hub::WorkerConnection::onHelloOverdue()
{
    const fn::AutoPtr self(this);
    _stream->readPending();
    if (!isIdentified() && !isClosed()) _hub.closeConnection(self, "it has not said HELLO in time");
}

void Hub::WorkerConnection::send(const Frame& frame)
{
    if (isClosed()) return;
    ++_framesSent;
    _messageHelper.send(frame);
    if (_stream->queuedBytes() > _hub._limits.stalledQueueBytes) [[unlikely]]
        watchQueue();
}

void Hub::WorkerConnection::close()
{
    _helloTimer.invalidate();
    _notRespondingTimer.invalidate();
    _pingTimer.invalidate();
    _queueTimer.invalidate();
    if (_stream) _stream->close();
    resumeSenders();
}

// --- Pings

void Hub::WorkerConnection::schedulePing()
{
    _notRespondingTimer.invalidate();
    _pulse = Pulse::Answered;
    const auto interval = std::max<std::int64_t>(_hub._timeout.totalMilliseconds(0) / 3, 1);
    _pingTimer = fn::uv::Timer::schedule(_hub._loop, fn::Duration::milliseconds(interval), [this] { onPingDue(); });
}

void Hub::WorkerConnection::onPingDue()
{
    _pulse = Pulse::Asked;
    _turnsLeft = turnsOfGrace;
    awaitPong(_hub._timeout);
    send(encodeMessage(type::PING, {}, limits::workerFrameBytes));
}

void Hub::WorkerConnection::awaitPong(fn::Duration time)
{
    // A PONG of a paused connection cannot be read: its silence means nothing.
    if (_pauses > 0) return;
    _pongDue = _hub._loop.clock().monotonic() + time;
    _notRespondingTimer = fn::uv::Timer::schedule(_hub._loop, time, [this] { onPongOverdue(); });
}

void Hub::WorkerConnection::onPongOverdue()
{
    const fn::AutoPtr self(this);
    _stream->readPending();
    // A message that was just read may have paused this connection before its PONG: `resume()` waits for the PONG again.
    if (_pulse != Pulse::Asked || _pauses > 0 || isClosed()) return;
    // While the loop was blocked, the workers of this process could not answer.
    if (_turnsLeft > 0) {
        const bool isStarved = _hub._loop.clock().monotonic() > _pongDue + starvedFrom;
        _turnsLeft = isStarved ? 0 : _turnsLeft - 1;
        return awaitPong(isStarved ? _hub._timeout : fn::Duration());
    }
    reportSilence();
}

void Hub::WorkerConnection::reportSilence()
{
    if (std::exchange(_pulse, Pulse::Silent) != Pulse::Silent) _hub.onWorkerNotResponding.fire(_info);
}

// --- The queue

void Hub::WorkerConnection::watchQueue()
{
    if (isOwnWorker() || _queue == Queue::TooLong) return;
    if (_stream->queuedBytes() > _hub._limits.queueBytes) {
        _queue = Queue::TooLong;
        // Not inside `send()`: the hub is still walking its table of connections.
        _hub._loop.post([self = fn::AutoPtr(this)] { self->closeStalled(); });
        return;
    }
    if (_queue == Queue::Long) return;
    _queue = Queue::Long;
    // The timer posts a task that looks at the queue: libuv writes after it has run the timers, so the queue may still shrink.
    const auto due = _hub._loop.clock().monotonic() + _hub._timeout;
    _queueTimer = fn::uv::Timer::schedule(_hub._loop, _hub._timeout, [this, due, sentBefore = _stream->sentBytes()] {
        const bool isStarved = _hub._loop.clock().monotonic() > due + starvedFrom;
        _hub._loop.post(
            [self = fn::AutoPtr(this), sentBefore, isStarved] { self->onQueueWatched(sentBefore, isStarved); });
    });
}

void Hub::WorkerConnection::onQueueWatched(std::uint64_t sentBefore, bool isStarved)
{
    if (isClosed() || _queue != Queue::Long) return;
    _queue = Queue::Short;
    if (_stream->queuedBytes() <= _hub._limits.stalledQueueBytes) return;
    if (_stream->sentBytes() != sentBefore || isStarved) return watchQueue();
    _queue = Queue::TooLong;
    closeStalled();
}

void Hub::WorkerConnection::closeStalled()
{
    if (isClosed()) return;
    const fn::AutoPtr self(this);
    reportSilence();
    const auto reason = fmt::format("it does not take the {} bytes that wait for it", _stream->queuedBytes());
    if (!isClosed()) _hub.closeConnection(self, reason.c_str());
}

void Hub::WorkerConnection::slowDown(const fn::AutoPtr<WorkerConnection>& sender)
{
    if (isClosed() || _stream->queuedBytes() <= _hub._limits.pausingQueueBytes || isOwnWorker()
        || sender->isOwnWorker())
        return;
    if (std::ranges::find(_waitingSenders, sender) != _waitingSenders.end()) return;
    if (_waitingSenders.empty()) {
        _stream->whenQueuedAtMost(_hub._limits.pausingQueueBytes / 2, [this] { resumeSenders(); });
    }
    _waitingSenders.push_back(sender);
    sender->pause();
}

void Hub::WorkerConnection::pause()
{
    if (_pauses++ > 0 || isClosed()) return;
    _stream->readStop();
    _notRespondingTimer.invalidate();
}

void Hub::WorkerConnection::resume()
{
    if (--_pauses > 0 || isClosed()) return;
    _stream->readResume(); // Cannot fail: it is connected, and a stream that failed to be read is closed.
    if (_pulse == Pulse::Asked) awaitPong(_hub._timeout);
}

void Hub::WorkerConnection::resumeSenders()
{
    for (const auto& sender : std::exchange(_waitingSenders, {})) sender->resume();
}

} // namespace ipc
