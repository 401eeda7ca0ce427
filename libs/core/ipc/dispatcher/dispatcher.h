#pragma once
#include "base/exceptions.h"
#include "base/lifetime.h"
#include "core/ipc/limits.h"
#include "core/ipc/worker/worker.h"
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
        WorkerId workerId = NO_WORKER_ID; ///< Until the connection has said HELLO.
        fn::String displayName;
        fn::String tag; ///< May be empty.
        fn::String toString() const; ///< "Media (t1, 3)", without a tag "Media (3)".
    };

    /// What one participant does, for inspectors: frames of all kinds and their bytes, since it has connected.
    struct FN_EXPORT WorkerStatistics {
        WorkerInfo info;
        std::uint64_t framesReceived = 0; ///< By the hub, from it.
        std::uint64_t bytesReceived = 0;
        std::uint64_t framesSent = 0; ///< To it; some of their bytes may still wait.
        std::uint64_t bytesSent = 0; ///< Taken by the system.
        std::size_t bytesWaiting = 0;
    };

    /// `timeout`: how long a PING may stay unanswered. Pings are sent every third of it, at least 1 ms apart.
    Dispatcher(fn::uv::Loop& loop, const fn::Duration& timeout, const HubLimits& limits = {});
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;
    ~Dispatcher(); ///< Sends nothing. Without a `stop()` before it, calls that are still pending are rejected here.

    void bind(); ///< Makes the endpoint. `fn::IOException` if that fails.
    void start(); ///< Listens, and connects the dispatcher's own worker.

    /// Tells everybody to quit, also who says HELLO from now on. After `delay` it closes its own worker (services of the main
    /// process: their pending calls are rejected, other workers' objects are dead here), and behind what follows from
    /// that stops the loop and calls `callback`. Cannot be cancelled.
    void stop(const fn::Duration& delay, folly::Function<void()> callback);

    fn::String pipePath() const;
    const fn::AutoPtr<fn::uv::PipeStream>& pipeStream() const; ///< Empty before `bind()`.
    fn::uv::Loop& loop() const;
    Worker& worker(); ///< The dispatcher's own worker: services of the main process live on it.

    /// For whoever may outlive it: `dispatcher.lifetime().watch()` says whether it is still there. Ends behind `~Dispatcher()`'s
    /// own steps and before its members, the own worker with its pending calls among them.
    const fn::Lifetime& lifetime() const;

    std::vector<WorkerStatistics> workers() const; ///< Those that have said HELLO, ascending by id.

    /// Its own worker is participant 0, the registry is there, and this process is on the message bus. Fires once.
    fn::Signal<>& onReady();
    /// Before its HELLO reply is sent.
    fn::Signal<const WorkerInfo&>& onWorkerConnected();
    /// Once per unanswered PING.
    fn::Signal<const WorkerInfo&>& onWorkerNotResponding();
    /// After everybody was told.
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
