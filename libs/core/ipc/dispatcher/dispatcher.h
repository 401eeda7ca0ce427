#pragma once
#include "base/exceptions.h"
#include "base/lifetime.h"
#include "core/ipc/dispatcher/open_files.h"
#include "core/ipc/dispatcher/usage_counts.h"
#include "core/ipc/dispatcher/worker_ids.h"
#include "core/ipc/limits.h"
#include "core/ipc/worker/worker.h"
#include "foundation/logging/logging.h"
#include "foundation/signal.h"
#include "foundation/uv/loop.h"
#include "foundation/uv/pipe_stream.h"
#include <deque>
#include <fmt/format.h>
#include <optional>
#include <set>
#include <span>
#include <unordered_map>

namespace ipc {

class MessageBus;
class RegistryImpl;
class MessageView;

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
class FN_EXPORT Dispatcher final : public Worker::Delegate {
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
    ~Dispatcher()
        override; ///< Sends nothing. Without a `stop()` before it, calls that are still pending are rejected here.

    void bind(); ///< Makes the endpoint. `fn::IOException` if that fails.
    void start(); ///< Listens, and connects the dispatcher's own worker.

    /// Tells everybody to quit, also who says HELLO from now on. After `delay` it closes its own worker (services of the main
    /// process: their pending calls are rejected, other workers' objects are dead here), and behind what follows from
    /// that stops the loop and calls `callback`. Cannot be cancelled.
    void stop(const fn::Duration& delay, folly::Function<void()> callback);

    fn::String pipePath() const { return _pipePath; }
    const fn::AutoPtr<fn::uv::PipeStream>& pipeStream() const { return _pipeStream; } ///< Empty before `bind()`.
    fn::uv::Loop& loop() const { return _loop; }
    Worker& worker() { return *_worker; } ///< The dispatcher's own worker: services of the main process live on it.

    /// For whoever may outlive it: `dispatcher.lifetime().watch()` says whether it is still there. Ends behind `~Dispatcher()`'s
    /// own steps and before its members, the own worker with its pending calls among them.
    const fn::Lifetime& lifetime() const { return _lifetime; }

    // For inspectors.
    std::vector<WorkerStatistics> workers() const; ///< Those that have said HELLO, ascending by id.
    const UsageCounts& usageCounts() const { return _counts; }
    const fn::AutoPtr<RegistryImpl>& registryImpl() const { return _registry; } ///< Empty before `onReady()`.

    /// Its own worker is participant 0, the registry is there, and this process is on the message bus. Fires once.
    fn::Signal<>& onReady() { return _onReady; }
    /// Before its HELLO reply is sent.
    fn::Signal<const WorkerInfo&>& onWorkerConnected() { return _onWorkerConnected; }
    /// Once per unanswered PING.
    fn::Signal<const WorkerInfo&>& onWorkerNotResponding() { return _onWorkerNotResponding; }
    /// After everybody was told.
    fn::Signal<const WorkerInfo&>& onWorkerDisconnected() { return _onWorkerDisconnected; }

private:
    class WorkerConnection;
    using Connection = fn::AutoPtr<WorkerConnection>;
    struct ByAccept {
        bool operator()(const Connection& left, const Connection& right) const;
    };

    void workerDidConnect(Worker& worker) override;
    bool wantsIdleTermination(Worker&) override { return false; }
    bool workerCanTerminate(Worker&) override { return false; }
    void workerRequestsTermination(Worker&) override { }
    void aboutToQuit(Worker&) override { }

    void onConnection(const fn::uv::Status& status);
    void accept();
    void joinBus(ObjectInstance& relay);
    void leaveBus();
    void closeOwnWorker();
    void onWorkerMessage(const Connection& connection, const MessageView& message);
    void onHello(const Connection& connection, const MessageView& message);
    void onMessage(const Connection& connection, const MessageView& message);
    void onReferenceRelease(const Connection& connection, const MessageView& message);
    std::vector<Connection> holdersOf(ObjectId objectId) const;
    void countObjects(WorkerId source, std::span<const ObjectId> objectIds, std::span<const Connection> receivers);
    void tellOwnersAreDead(std::span<const ObjectId> objectIds, std::span<const Connection> receivers);
    void sendRelease(const UsageCounts::Release& release);
    void onWorkerEOS(const Connection& connection);
    void workerDied(const Connection& connection);
    void endFirstDying();
    void tellDeath(const Connection& connection);
    void closeConnection(const Connection& connection, const char* reason);
    WorkerId takeWorkerId();
    Connection connectionOf(WorkerId workerId) const;

    static const fn::logging::Category& _fn_getLoggingCategoryStatic();
    static fn::logging::Tag _fn_getLoggingTagStatic();
    fn::logging::Tag _fn_getLoggingTag() const { return _fn_getLoggingTagStatic(); }

    fn::uv::Loop& _loop;
    const fn::Duration _timeout;
    const HubLimits _limits;
    const fn::String _pipePath;
    fn::AutoPtr<fn::uv::PipeStream> _pipeStream;
    std::set<Connection, ByAccept> _connections; // Every accepted connection that has not died.
    int _waitingConnections = 0; // Not accepted before the own worker is there.
    OpenFilesWarning _openFilesWarning;
    std::unordered_map<WorkerId, Connection> _workers; // Those that have said HELLO.
    UsageCounts _counts;
    WorkerIds _ids;
    struct Death {
        Connection connection; // Closed.
        std::optional<std::size_t> left; // Of the objects counted for it when it began to be ended.
    };
    std::deque<Death> _dying; // In their order.
    fn::Handle _dyingTask; // The next part of the first one.
    std::unique_ptr<Worker> _worker;
    fn::AutoPtr<RegistryImpl> _registry;
    fn::AutoPtr<MessageBus> _bus; // Installed in this process, unless it had one that spans processes.
    bool _isStopping = false;
    fn::Signal<> _onReady;
    fn::Signal<const WorkerInfo&> _onWorkerConnected;
    fn::Signal<const WorkerInfo&> _onWorkerNotResponding;
    fn::Signal<const WorkerInfo&> _onWorkerDisconnected;
    fn::Lifetime _lifetime;
};

} // namespace ipc

template <> struct fmt::formatter<ipc::Dispatcher::WorkerInfo> : fmt::formatter<std::string_view> {
    template <typename Context> auto format(const ipc::Dispatcher::WorkerInfo& info, Context& context) const
    {
        return fmt::formatter<std::string_view>::format(info.toString().view(), context);
    }
};
