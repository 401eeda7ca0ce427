#pragma once
#include "base/lifetime.h"
#include "core/ipc/dispatcher/detail/open_files.h"
#include "core/ipc/dispatcher/detail/usage_counts.h"
#include "core/ipc/dispatcher/detail/worker_ids.h"
#include "core/ipc/dispatcher/dispatcher.h"
#include "foundation/logging/logging.h"
#include <deque>
#include <optional>
#include <set>
#include <span>
#include <unordered_map>

namespace ipc {

class MessageBus;
class MessageView;
class RegistryImpl;

/// The inside of a Dispatcher, whose header documents the methods of the same names.
class Hub final : public Worker::Delegate {
public:
    using WorkerInfo = Dispatcher::WorkerInfo;
    using WorkerStatistics = Dispatcher::WorkerStatistics;

    Hub(fn::uv::Loop& loop, const fn::Duration& timeout, const HubLimits& limits);
    ~Hub() override;

    void bind();
    void start();
    void stop(const fn::Duration& delay, folly::Function<void()> callback);
    fn::Promise<void> end(const fn::Duration& graceTime);
    std::vector<WorkerStatistics> workers() const;

    fn::uv::Loop& loop() const { return _loop; }
    const fn::String& pipePath() const { return _pipePath; }
    const fn::AutoPtr<fn::uv::PipeStream>& pipeStream() const { return _pipeStream; }
    Worker& worker() { return *_worker; }
    const UsageCounts& usageCounts() const { return _counts; }
    const fn::AutoPtr<RegistryImpl>& registryImpl() const { return _registry; } ///< Empty before `onReady`.
    const fn::Lifetime& lifetime() const { return _lifetime; }

    fn::Signal<> onReady;
    fn::Signal<const WorkerInfo&> onWorkerConnected;
    fn::Signal<const WorkerInfo&> onWorkerNotResponding;
    fn::Signal<const WorkerInfo&> onWorkerDisconnected;

private:
    class WorkerConnection;
    using Connection = fn::AutoPtr<WorkerConnection>;
    struct ByAccept {
        bool operator()(const Connection& left, const Connection& right) const;
    };

    void workerDidConnect(Worker& worker) override;

    void onConnection(const fn::uv::Status& status);
    void accept();
    void joinBus(ObjectInstance& relay);
    void leaveBus();
    void closeOwnWorker();
    void tellToQuit();
    bool hasOthers() const;
    void finishEnd();
    void fulfillEnds();
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
    int _waitingConnections = 0; // Connections that are accepted when the own worker has connected.
    OpenFilesWarning _openFilesWarning;
    std::unordered_map<WorkerId, Connection> _workers; // Those that have said HELLO.
    UsageCounts _counts;
    WorkerIds _ids;
    struct Death {
        Connection connection; // Closed.
        std::optional<std::size_t> left; // How many objects are still to be dropped; empty before the first part.
    };
    std::deque<Death> _dying; // Dead workers that nobody has been told of, in the order of their deaths.
    fn::Handle _dyingTask; // Drops the next part of the first of them.
    std::unique_ptr<Worker> _worker;
    fn::AutoPtr<RegistryImpl> _registry;
    fn::AutoPtr<MessageBus> _bus; // Installed by this hub; empty where the process had an `ipc::MessageBus` before.
    bool _isStopping = false; // Everybody has been told to quit, and each newcomer will be.
    std::vector<fn::Promise<void>> _ends; // Of `end()`, until it is over.
    fn::Handle _graceTimer;
    fn::Lifetime _lifetime;
};

} // namespace ipc
