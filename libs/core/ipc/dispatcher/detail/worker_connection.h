#pragma once
#include "base/exceptions.h"
#include "core/ipc/dispatcher/detail/hub.h"
#include "core/ipc/wire/message_helper.h"

namespace ipc {

/// One accepted pipe connection of the dispatcher: its identity, its pings, and the queue of frames that wait to be written.
///
/// Pings:
///
///     Unheard        -> Answered    the hub answers HELLO
///     Answered       -> Asked       a third of the time-out later: the hub sends a PING
///     Asked, Silent  -> Answered    a PONG comes
///     Asked          -> Silent      no PONG within the time-out: the worker is reported as not responding
///     any            -> Silent      the queue is too long: reported, unless it has been
///
/// When a PONG is overdue the hub reads the socket once more and waits some turns before it reports the worker: if the hub's
/// loop was blocked, the PONG may have arrived unread, and workers of the hub's process could not send theirs.
///
/// Queue:
///
///     Short          -> Long        more than `stalledQueueBytes` wait
///     Long           -> Short       a time-out later fewer do
///     Long           -> TooLong     the receiver has taken no byte for a whole time-out: closed
///     Short, Long    -> TooLong     more than `queueBytes` wait: closed
///
/// If the hub's loop was blocked when that time-out ended, it begins anew. For a receiver that is slow but takes bytes the hub
/// waits: it pauses the connections that send to it, which means that it reads no further from them.
class Hub::WorkerConnection final : public fn::RefCountedObject {
public:
    WorkerConnection(Hub& hub, WorkerIds::Listener listener);

    void accept(fn::uv::PipeStream& listener); ///< Takes the waiting connection and starts reading.

    const WorkerInfo& info() const { return _info; }
    void identify(WorkerInfo info); ///< The worker has said HELLO; `info` tells its id and names.
    bool isIdentified() const { return _info.workerId != NO_WORKER_ID; }
    bool isOwnWorker() const { return _info.workerId == 0; }
    bool isHere() const { return _isHere; } ///< Whether the worker is in the process of the hub.
    bool isClosed() const { return !_stream || _stream->isClosed(); }
    WorkerStatistics statistics() const;
    WorkerIds::Listener& listener() { return _listener; } ///< Knows which deaths the worker has been told.

    void send(const Frame& frame); ///< Queues the frame without copying its bytes. Does nothing once closed.
    void schedulePing(); ///< To be called when HELLO has been answered and when a PONG has come.

    /// Pauses `sender` while too many bytes wait for this connection: it is not read until half of them have left.
    void slowDown(const fn::AutoPtr<WorkerConnection>& sender);

    void close(); ///< Ends the stream and the timers. Senders that were paused for this connection are read again.

private:
    enum class Pulse { Unheard, Answered, Asked, Silent };
    enum class Queue { Short, Long, TooLong };

    ~WorkerConnection() override = default;

    bool handle(const FrameBody& body);
    void onHelloOverdue();
    void onPingDue();
    void awaitPong(fn::Duration time);
    void onPongOverdue();
    void reportSilence();
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
    bool _isHere = false;
    fn::Handle _notRespondingTimer;
    fn::Handle _pingTimer;
    MessageHelper _messageHelper;
    fn::Handle _helloTimer;
    fn::Handle _queueTimer; // Looks at a long queue again.
    std::vector<fn::AutoPtr<WorkerConnection>> _waitingSenders; // Connections that are paused for this one.
    std::uint64_t _framesReceived = 0;
    std::uint64_t _bytesReceived = 0;
    std::uint64_t _framesSent = 0;
    int _pauses = 0; // How many receivers this connection is paused for. It is not read while there is one.
    Pulse _pulse = Pulse::Unheard;
    int _turnsLeft = 0; // Turns of grace that are left for an overdue PONG.
    fn::Duration _pongDue; // When the time-out of the last PING ends, by the loop's clock.
    Queue _queue = Queue::Short;
};

} // namespace ipc
