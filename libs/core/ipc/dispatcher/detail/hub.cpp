#include "core/ipc/dispatcher/detail/hub.h"
#include "base/exceptions.h"
#include "base/utf8.h"
#include "core/ipc/detail/registry_impl.h"
#include "core/ipc/dispatcher/detail/worker_connection.h"
#include "core/ipc/limits.h"
#include "core/ipc/message_bus.h"
#include "core/ipc/wire/detail/message_codec.h"
#include "core/ipc/wire/detail/message_dump.h"
#include "core/services/app_info.h"
#include "foundation/assertion.h"
#include "foundation/io/file.h"
#include "foundation/system/uuid.h"
#include "foundation/value_map.h"
#include <algorithm>
#include <bitset>

namespace ipc {
namespace {

FN_LOG_CATEGORY("ipc.dispatcher");

constexpr int backlog = 128;

// The hub drops this many objects of a dead worker in one turn of the loop, which takes well below a millisecond.
constexpr std::size_t deathPart = 1000;

fn::String newPipePath()
{
    return "\\\\.\\pipe\\" + core::AppInfo::commonId() + "-"
        + fn::UUIDGenerator::defaultGenerator().createOne().toString();
}

/// A name that a worker gives itself.
fn::String nameOf(const fn::Value& text) { return fn::cutText(text.asString(), limits::nameBytes); }

Frame plainMessage(int type) { return encodeMessage(type, {}, limits::workerFrameBytes); }

Frame aboutWorker(int type, WorkerId id)
{
    return encodeMessage(type, { { field::WORKER_ID, id } }, limits::workerFrameBytes);
}

} // namespace

bool Hub::ByAccept::operator()(const Connection& left, const Connection& right) const
{
    return left->listener().acceptedAt() < right->listener().acceptedAt();
}

Hub::Hub(fn::uv::Loop& loop, const fn::Duration& timeout, const HubLimits& limits)
    : _loop(loop),
      _timeout(timeout),
      _limits(limits),
      _pipePath(newPipePath()),
      _ids(limits.workerIds)
{
    const fn::File endpoint(_pipePath);
    if (endpoint.exists()) endpoint.remove(false);
    _worker = std::make_unique<Worker>(*this, loop, _pipePath, "DispatcherWorker", fn::String(), false);
}

Hub::~Hub()
{
    leaveBus();
    if (!_ends.empty()) fulfillEnds();
    // Other code may hold the listener and the connections for a moment longer; once closed, they do not call this hub.
    if (_pipeStream) _pipeStream->close();
    for (const auto& connection : _connections) connection->close();
}

void Hub::bind()
{
    _pipeStream = fn::makeAuto<fn::uv::PipeStream>(_loop, false);
    _pipeStream->bind(_pipePath);
}

void Hub::start()
{
    _pipeStream->listen(backlog, _lifetime.guard([this](const fn::uv::Status& status) { onConnection(status); }));
    _worker->connect();
}

void Hub::stop(const fn::Duration& delay, folly::Function<void()> callback)
{
    tellToQuit();
    auto end = [&loop = _loop, callback = std::move(callback)]() mutable {
        loop.stop();
        if (callback) callback();
    };
    // If this hub is destroyed before `delay` is over, its own worker needs no closing, but the loop still stops.
    auto close = _lifetime.guard([this] { closeOwnWorker(); });
    auto task = [&loop = _loop, close = std::move(close), end = std::move(end)]() mutable {
        close();
        loop.post(std::move(end)); // Runs after the tasks that closing the own worker has posted.
    };
    _loop.schedule(delay, std::move(task)).detach();
}

void Hub::tellToQuit()
{
    _isStopping = true;
    const auto quit = plainMessage(type::QUIT);
    for (const auto& connection : _connections) connection->send(quit);
}

fn::Promise<void> Hub::end(const fn::Duration& graceTime)
{
    tellToQuit();
    auto promise = fn::Promise<void>::create();
    _ends.push_back(promise);
    const auto finish = [this] { finishEnd(); };
    _graceTimer = _loop.schedule(hasOthers() ? graceTime : fn::Duration(), finish);
    return promise;
}

/// Whether there are participants in other processes.
bool Hub::hasOthers() const
{
    return std::ranges::any_of(_workers, [](const auto& worker) { return !worker.second->isHere(); });
}

void Hub::finishEnd()
{
    _graceTimer.invalidate();
    closeOwnWorker();
    fulfillEnds();
}

/// In a task, which runs after those that closing the own worker has posted.
void Hub::fulfillEnds()
{
    _loop.post([ends = std::exchange(_ends, {})] {
        for (const auto& promise : ends) promise.fulfill();
    });
}

void Hub::onConnection(const fn::uv::Status& status)
{
    status.throwOnError();
    // The hub's own worker connects first. Other connections wait until it has id 0 and its objects.
    if (!_registry && !_connections.empty())
        ++_waitingConnections;
    else
        accept();
}

void Hub::accept()
{
    const auto connection = fn::makeAuto<WorkerConnection>(*this, _ids.accept());
    connection->accept(*_pipeStream);
    _connections.insert(connection);
    _openFilesWarning.check(_loop.clock());
}

std::vector<Hub::WorkerStatistics> Hub::workers() const
{
    std::vector<WorkerStatistics> statistics;
    statistics.reserve(_workers.size());
    for (const auto& [id, connection] : _workers) statistics.push_back(connection->statistics());
    std::ranges::sort(statistics, {}, [](const WorkerStatistics& worker) { return worker.info.workerId; });
    return statistics;
}

// --- Messages

void Hub::onWorkerMessage(const Connection& connection, const MessageView& message)
{
    const auto& info = connection->info();
    const auto* address = static_cast<const void*>(connection.get());
    const auto messageType = message.type();
    if (messageType == type::INVALID) {
        FN_LOG(Warning, "Received malformed message from worker {} ({}) ({})\n{}", info.displayName, info.workerId,
            address, MessageDebugFormat { message.toValue() });
        return;
    }
    if (messageType == type::PONG) {
        FN_LOG(Trace, "Received PONG from worker {} (${}) ({})", info.displayName, info.workerId, address);
        if (connection->isIdentified()) connection->schedulePing();
        return;
    }
    FN_LOG(Debug, "Receiving from worker {} ({}) ({}) {} bytes\n{}", info.displayName, info.workerId, address,
        message.size(), MessageDebugFormat { message.toValue() });
    switch (messageType) {
    case type::HELLO: onHello(connection, message); break;
    case type::MESSAGE: onMessage(connection, message); break;
    case type::REFERENCE_RELEASE: onReferenceRelease(connection, message); break;
    default: break;
    }
}

void Hub::onHello(const Connection& connection, const MessageView& message)
{
    if (connection->isIdentified()) {
        FN_LOG(Warning, "Ignoring a second HELLO from worker {}", connection->info());
        return;
    }
    const auto displayName = nameOf(message.required(field::DISPLAY_NAME));
    const auto tag = nameOf(message.value(field::TAG));
    const auto id = takeWorkerId();
    FN_LOG(Debug, "Worker {} ({}) connected - assigning Id {}", displayName, tag, id);
    connection->identify({ id, displayName, tag });
    _workers[id] = connection;
    onWorkerConnected.fire(connection->info());
    connection->send(aboutWorker(type::HELLO, id));
    if (_isStopping) connection->send(plainMessage(type::QUIT));
    if (!connection->isClosed()) connection->schedulePing();
}

/// Takes an id for a new worker. Connections that were told of its death hear first that the id is used again.
WorkerId Hub::takeWorkerId()
{
    std::vector<const WorkerIds::Listener*> others;
    for (const auto& connection : _connections) {
        if (!connection->isOwnWorker()) others.push_back(&connection->listener());
    }
    const auto id = _ids.next(others);
    if (!id) throw fn::RuntimeException("All worker ids are in use", fn::Exception::StackTrace::None);
    for (const auto& connection : _connections) {
        if (!_ids.isTold(connection->listener(), *id)) continue;
        _ids.forget(connection->listener(), *id);
        connection->send(aboutWorker(type::WORKER_ID_REUSED, *id));
    }
    _ids.giveOut(*id);
    return *id;
}

Hub::Connection Hub::connectionOf(WorkerId workerId) const
{
    const auto found = _workers.find(workerId);
    return found == _workers.end() ? Connection() : found->second;
}

/// The connections of the workers that hold references to an object; for the registry all but that of its owner, worker 0.
std::vector<Hub::Connection> Hub::holdersOf(ObjectId objectId) const
{
    std::vector<Connection> holders;
    if (objectId == REGISTRY_OBJECT_ID) {
        for (const auto& connection : _connections) {
            if (connection->info().workerId != 0) holders.push_back(connection);
        }
    } else {
        for (const auto& receiver : _counts.receivers(objectId)) {
            if (auto connection = connectionOf(receiver.workerId)) holders.push_back(std::move(connection));
        }
    }
    return holders;
}

/// Reads and checks the whole message before it counts or sends anything, so that a refused message changes nothing.
void Hub::onMessage(const Connection& connection, const MessageView& message)
{
    const auto source = connection->info().workerId;
    const auto target = message.integer<WorkerId>(field::TARGET_WORKER_ID);
    auto objectIds = message.objectIds();
    std::vector<Connection> holders;
    std::span<const Connection> receivers;
    if (target == NO_WORKER_ID) {
        holders = holdersOf(message.integer<ObjectId>(field::OBJECT_ID));
        receivers = holders;
    } else if (const auto found = _workers.find(target); found != _workers.end()) {
        receivers = { &found->second, 1 };
    }
    const auto frame = receivers.empty() ? Frame() : message.forwardedFrom(source);

    // Not counted: objects whose owner is not connected, since no death would end their counts, and the registry, which
    // every worker has for ever. The sender's own objects are always counted.
    const auto uncounted = std::ranges::partition(objectIds, [&](ObjectId id) {
        return ownerOf(id) == source || (id != REGISTRY_OBJECT_ID && _workers.contains(ownerOf(id)));
    });
    const std::span counted(objectIds.begin(), uncounted.begin());
    if (!counted.empty()) countObjects(source, counted, receivers);
    if (!uncounted.empty()) tellOwnersAreDead(uncounted, receivers);
    for (const auto& receiver : receivers) {
        receiver->send(frame);
        receiver->slowDown(connection);
    }
    for (const auto id : counted) {
        if (ownerOf(id) != source) continue;
        if (const auto due = _counts.countSent(id)) sendRelease(*due);
    }
}

void Hub::countObjects(WorkerId source, std::span<const ObjectId> objectIds, std::span<const Connection> receivers)
{
    std::vector<WorkerId> receiverIds;
    receiverIds.reserve(receivers.size());
    for (const auto& receiver : receivers) receiverIds.push_back(receiver->info().workerId);
    if (!_counts.canCount(source, objectIds, receiverIds)) {
        throw fn::RangeException("it has listed more objects than can be counted", fn::Exception::StackTrace::None);
    }
    for (const auto id : objectIds) {
        for (const auto receiver : receiverIds) _counts.countReceived(source, id, receiver);
    }
}

/// Sends WORKER_DEAD for the owners of these objects to each receiver that has not heard of their death. The notice goes
/// before the message that lists the objects; without it the receiver's references would stay silent for ever.
void Hub::tellOwnersAreDead(std::span<const ObjectId> objectIds, std::span<const Connection> receivers)
{
    std::bitset<NO_WORKER_ID + 1> seen; // Owners. One message may list very many objects of one owner.
    for (const auto objectId : objectIds) {
        const auto owner = ownerOf(objectId);
        if (seen.test(owner)) continue;
        seen.set(owner);
        for (const auto& receiver : receivers) {
            if (_ids.mustTell(receiver->listener(), owner)) receiver->send(aboutWorker(type::WORKER_DEAD, owner));
        }
    }
}

void Hub::onReferenceRelease(const Connection& connection, const MessageView& message)
{
    const auto objectId = message.integer<ObjectId>(field::OBJECT_ID);
    if (!connectionOf(ownerOf(objectId))) return; // The owner's death drops the counts of its objects.
    const auto count = message.integer<std::int32_t>(field::USAGE_COUNT);
    std::optional<UsageCounts::Release> due;
    const auto outcome = _counts.release(connection->info().workerId, objectId, count, due);
    if (outcome == UsageCounts::Outcome::BadCount) {
        throw fn::RangeException(
            fmt::format("it released {} uses of object {}, which it does not have", count, objectId),
            fn::Exception::StackTrace::None);
    }
    if (due) sendRelease(*due);
}

void Hub::sendRelease(const UsageCounts::Release& release)
{
    const auto owner = connectionOf(ownerOf(release.objectId));
    if (!owner) return;
    owner->send(encodeMessage(type::INSTANCE_RELEASE,
        { { field::OBJECT_ID, release.objectId }, { field::USAGE_COUNT, release.count } }, limits::workerFrameBytes));
}

// --- Ends

void Hub::closeConnection(const Connection& connection, const char* reason)
{
    if (connection->isOwnWorker()) {
        FN_LOG(Error, "Dropping a message of the hub's own worker: {}", reason);
        return;
    }
    FN_LOG(Warning, "Closing the connection of worker {}: {}", connection->info(), reason);
    onWorkerEOS(connection);
}

void Hub::onWorkerEOS(const Connection& connection)
{
    connection->close();
    workerDied(connection);
}

void Hub::workerDied(const Connection& connection)
{
    if (_connections.erase(connection) == 0) return; // Its death is handled already.
    if (connection->isIdentified()) _workers.erase(connection->info().workerId);
    _dying.push_back({ connection, {} });
    if (_dying.size() == 1) endFirstDying();
    if (!_ends.empty() && !hasOthers()) finishEnd();
}

/// Takes the worker that died first, and drops one part of the counts of the objects that it owned or held. Behind the last
/// part the hub tells everybody of the death: releases leave before the notice, and deaths are told in their order. Between
/// the parts the loop handles messages of other workers; for them the objects that are left count as before. The number of
/// objects to drop is fixed at the first part, so that no peer can hold up the notices.
void Hub::endFirstDying()
{
    const auto connection = _dying.front().connection;
    auto& left = _dying.front().left;
    const auto id = connection->info().workerId;
    if (!left) left = _counts.concerned(id);
    const auto part = std::min(*left, deathPart);
    for (const auto& due : _counts.workerDied(id, part)) sendRelease(due);
    *left -= part;
    const bool isOver = *left == 0;
    if (isOver) _dying.pop_front();
    if (!_dying.empty()) _dyingTask = _loop.schedule({}, [this] { endFirstDying(); });
    if (isOver) tellDeath(connection);
}

void Hub::tellDeath(const Connection& connection)
{
    const auto id = connection->info().workerId;
    if (connection->isIdentified()) _ids.died(id); // From now on the id may be given out again.
    const auto notice = aboutWorker(type::WORKER_DEAD, id);
    for (const auto& other : _connections) other->send(notice);
    onWorkerDisconnected.fire(connection->info());
}

// --- Logging

const fn::logging::Category& Hub::_fn_getLoggingCategoryStatic() { return fnFileLogCategory(); }

fn::logging::Tag Hub::_fn_getLoggingTagStatic() { return { "", 0 }; }

} // namespace ipc
