#pragma once
#include "base/exceptions.h"
#include "base/lifetime.h"
#include "core/ipc/limits.h"
#include "core/ipc/worker/worker.h"
#include "foundation/promise.h"
#include "foundation/signal.h"
#include "foundation/uv/loop.h"
#include "foundation/uv/pipe_stream.h"
#include <fmt/format.h>

namespace ipc {

class Hub;

/// The hub of the object system, once in the main process: listens on a local pipe, gives every participant that says HELLO
/// a WorkerId, routes each message to its receivers, keeps the usage counts that decide when an object may go, pings
/// everybody, and tells everybody who has died. It never decodes a payload. Its own worker is participant 0 and hosts the
/// registry and the message bus.
///
/// Use: construct, `bind()`, `start()`, create the ModuleManager, run the loop; at the end `stop()`. Destroy it after the
/// loop has stopped. Everything runs on the loop's thread; signal listeners run inside the handler that fires them.
///
/// Peers are not trusted: a message that cannot be understood closes its sender's connection with a log line, and what one
/// peer makes the hub hold is bounded (core/ipc/limits.h).
class FN_EXPORT Dispatcher final {
public:
    /// Describes one connection.
    struct FN_EXPORT WorkerInfo {
        WorkerId workerId = NO_WORKER_ID; ///< NO_WORKER_ID until the connection has said HELLO.
        fn::String displayName; ///< For people and logs, as the participant calls itself.
        fn::String tag; ///< May be empty.
        fn::String toString() const; ///< "Media (t1, 3)", without a tag "Media (3)".
    };

    /// The traffic of one participant since it has connected, for inspectors: frames of all kinds, and their bytes.
    struct FN_EXPORT WorkerStatistics {
        WorkerInfo info; ///< Who it is.
        std::uint64_t framesReceived = 0; ///< Frames that the hub has received from the participant.
        std::uint64_t bytesReceived = 0; ///< Bytes of those frames.
        std::uint64_t framesSent = 0; ///< Frames that the hub has sent to it; some of their bytes may still wait.
        std::uint64_t bytesSent = 0; ///< Bytes that the system has taken.
        std::size_t bytesWaiting = 0; ///< Bytes that wait in this process until the system takes them.
    };

    /// `timeout`: how long a PING may stay unanswered. Pings are sent every third of it, at least 1 ms apart.
    Dispatcher(fn::uv::Loop& loop, const fn::Duration& timeout, const HubLimits& limits = {});
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;
    ~Dispatcher(); ///< Sends nothing. Without a `stop()` before it, it rejects the pending calls of its own worker.

    void bind(); ///< Makes the endpoint. `fn::IOException` if that fails.
    void start(); ///< Listens, and connects the dispatcher's own worker.

    /// Sends QUIT to all participants, and to each that says HELLO from now on. After `delay` the dispatcher closes its own
    /// worker: pending calls of the main process's services are rejected, and other workers' objects are dead here. When the
    /// tasks that this posts have run, the loop stops and `callback` is called. Cannot be cancelled.
    void stop(const fn::Duration& delay, folly::Function<void()> callback);

    /// Sends QUIT likewise, and then waits until all participants of other processes have gone, for `graceTime` at most: then closes
    /// the own worker, and fulfils the promise. The loop runs on. Leaves no timer, and can be called again: each promise is
    /// fulfilled. A dispatcher that is destroyed before fulfils it, too.
    fn::Promise<void> end(const fn::Duration& graceTime);

    fn::String pipePath() const; ///< Where participants connect; a new name for each dispatcher.
    const fn::AutoPtr<fn::uv::PipeStream>& pipeStream() const; ///< Empty before `bind()`.
    fn::uv::Loop& loop() const; ///< The loop that everything here runs on.
    Worker& worker(); ///< The dispatcher's own worker: services of the main process live on it.

    /// For objects that may outlive the dispatcher: `dispatcher.lifetime().watch()` says whether it is still there. The lifetime
    /// ends before the own worker is destroyed and its pending calls are rejected.
    const fn::Lifetime& lifetime() const;

    std::vector<WorkerStatistics> workers() const; ///< The participants that have said HELLO, ascending by id.

    /// Fires once: the own worker is participant 0, the registry is there, and this process is on the message bus.
    fn::Signal<>& onReady();
    /// Fires when a worker has said HELLO, before the reply with its id is sent.
    fn::Signal<const WorkerInfo&>& onWorkerConnected();
    /// Fires at most once for each PING that stays unanswered, and when a worker is closed that takes no bytes.
    fn::Signal<const WorkerInfo&>& onWorkerNotResponding();
    /// Fires for each connection that has ended, also before HELLO, after WORKER_DEAD was sent to everybody.
    fn::Signal<const WorkerInfo&>& onWorkerDisconnected();

private:
    friend class HubInspection;

    const std::unique_ptr<Hub> _hub;
};

} // namespace ipc

template <> struct fmt::formatter<ipc::Dispatcher::WorkerInfo> : fmt::formatter<std::string_view> {
    template <typename Context> auto format(const ipc::Dispatcher::WorkerInfo& info, Context& context) const
    {
        return fmt::formatter<std::string_view>::format(info.toString().view(), context);
    }
};
