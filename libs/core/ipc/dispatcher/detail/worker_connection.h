#pragma once
#include "base/exceptions.h"
#include "core/ipc/dispatcher/detail/hub.h"
#include "core/ipc/wire/message_helper.h"

namespace ipc {

/// One accepted pipe connection of the dispatcher: its identity, its pings, and the queue of what waits for it.
///
/// Pings: a third of the time-out after HELLO and after each PONG. When a PONG is overdue the socket is read once more
/// before anybody is told: a hub that was itself starved finds answers lying unread, and waits some turns
/// more for those that it has kept from answering.
///
/// Queue: a receiver that takes nothing for the time-out while much waits for it is reported as not responding and closed;
/// where the hub was itself starved at the end of that time, it is watched anew.
/// One that still takes bytes is waited for: those who send to it are read no further until half has left.
class Hub::WorkerConnection final : public fn::RefCountedObject {
public:
    WorkerConnection(Hub& hub, WorkerIds::Listener listener);

    void accept(fn::uv::PipeStream& listener); ///< Takes the waiting connection and starts reading.

    const WorkerInfo& info() const { return _info; }
    void identify(WorkerInfo info); ///< It has said HELLO.
    bool isIdentified() const { return _isIdentified; }
    bool isOwnWorker() const { return _isIdentified && _info.workerId == 0; }
    bool isClosed() const { return !_stream || _stream->isClosed(); }
    WorkerStatistics statistics() const;
    WorkerIds::Listener& listener() { return _listener; } ///< Which deaths it has been told.

    void send(const Frame& frame); ///< Several receivers share it.
    void schedulePing(); ///< A PONG has come, or HELLO has been answered.

    /// Reads no further from `sender` while too much of it waits for this connection.
    void slowDown(const fn::AutoPtr<WorkerConnection>& sender);

    void close(); ///< Ends the stream and timers; senders that wait for this connection go on.

private:
    ~WorkerConnection() override = default;

    bool handle(const FrameBody& body);
    void onHelloOverdue();
    void onPingDue();
    void awaitPong(fn::Duration time);
    void onPongOverdue();
    void watchQueue();
    void onQueueWatched(std::uint64_t sentBefore, bool isStarved);
    void closeStalled();
    void pause();
    void resume();
    void resumeSenders();

    Hub& _hub;
    WorkerIds::Listener _listener;
    WorkerInfo _info;
    fn::AutoPtr<fn::uv::PipeStream> _stream;
    fn::Handle _notRespondingTimer;
    fn::Handle _pingTimer;
    MessageHelper _messageHelper;
    fn::Handle _helloTimer;
    fn::Handle _queueTimer; // Runs while more waits for this connection than a stalled one may have.
    std::vector<fn::AutoPtr<WorkerConnection>> _waitingSenders; // Not read until this connection has taken half.
    std::uint64_t _framesReceived = 0;
    std::uint64_t _bytesReceived = 0;
    std::uint64_t _framesSent = 0;
    int _pauses = 0; // Receivers for whose sake this connection is not read.
    bool _isIdentified = false;
    bool _isPongAwaited = false;
    int _turnsLeft = 0; // Of grace, for the PONG.
    fn::Duration _pongDue; // By the loop's clock.
    bool _wasReported = false; // Not responding, since the last PING.
};

} // namespace ipc
