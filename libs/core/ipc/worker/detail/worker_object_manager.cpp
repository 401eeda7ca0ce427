#include "core/ipc/worker/detail/worker_object_manager.h"
#include "base/exceptions.h"
#include "core/ipc/object/object_instance.h"
#include "core/ipc/object/object_reference.h"
#include "core/ipc/worker/detail/worker_link.h"
#include "foundation/assertion.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/logging/logging.h"
#include <algorithm>

namespace ipc {
namespace {

// Of a payload in this worker. Most are calls and answers with small arguments.
constexpr std::size_t expectedBytes = 112;

constexpr const char* site = "libs/core/ipc/worker";

constexpr auto& factoryCategory = fn::logging::category<"core.ipc.ObjectReferenceFactory">;

/// The class name that a plain ObjectReference reports.
const fn::String& plainClassName()
{
    static const fn::String name = ObjectReference::classNameOf<ObjectReference>();
    return name;
}

} // namespace

void requireConnectedOwner(ObjectId objectId)
{
    if (ownerOf(objectId) != NO_WORKER_ID) return;
    throw fn::RuntimeException("The object cannot be shared: it was made before the worker was connected");
}

WorkerObjectManager::WorkerObjectManager(Worker& worker, WorkerLink& link, fn::RunLoop& loop)
    : ObjectHost(worker, loop),
      _link(link)
{
}

void WorkerObjectManager::close()
{
    _worker = nullptr;
    markAllDead(true);
    dropUsageHolds();
}

// --- Tables

ObjectId WorkerObjectManager::nextObjectId()
{
    if (!FN_ASSERT(_workerId != NO_WORKER_ID, fn::sites::workerIsConnected)) {
        return (_nextEarlySequence++ << 16) + NO_WORKER_ID;
    }
    return (_nextSequence++ << 16) + _workerId;
}

void WorkerObjectManager::registerInstance(ObjectInstance& instance) { _instances[instance.objectId()] = &instance; }

void WorkerObjectManager::unregisterInstance(ObjectInstance* instance)
{
    if (!FN_ASSERT(instance, fn::sites::endingInstanceIsThere)) return;
    const auto found = _instances.find(instance->objectId());
    if (found != _instances.end() && found->second == instance) _instances.erase(found);
}

void WorkerObjectManager::registerReference(ObjectReference& reference)
{
    auto& place = _references[ownerOf(reference.objectId())][reference.objectId()];
    if (place) _displaced.push_back(place);
    place = &reference;
}

void WorkerObjectManager::unregisterReference(ObjectReference* reference)
{
    if (!FN_ASSERT(reference, fn::sites::endingReferenceIsThere)) return;
    const auto objectId = reference->objectId();
    std::erase(_displaced, reference);
    const auto table = _references.find(ownerOf(objectId));
    if (table != _references.end()) {
        const auto found = table->second.find(objectId);
        if (found != table->second.end() && found->second == reference) table->second.erase(found);
        if (table->second.empty()) _references.erase(table);
    }
    if (!reference->local() && !reference->dead()) sendRelease(objectId, reference->usageCount());
}

void WorkerObjectManager::sendRelease(ObjectId objectId, std::int32_t count)
{
    if (count != 0 && isAlive()) _link.sendRelease(objectId, count);
}

void WorkerObjectManager::makeLocal(
    const fn::AutoPtr<ObjectReference>& reference, const fn::AutoPtr<ObjectInstance>& instance)
{
    reference->_instance = instance;
    instance->_localReference = reference;
}

fn::AutoPtr<ObjectInstance> WorkerObjectManager::instance(ObjectId objectId) const
{
    const auto found = _instances.find(objectId);
    if (found == _instances.end() || !found->second->tryRetain()) return {};
    return fn::AutoPtr<ObjectInstance>::adopt(found->second);
}

fn::AutoPtr<ObjectReference> WorkerObjectManager::reference(ObjectId objectId) const
{
    const auto table = _references.find(ownerOf(objectId));
    if (table == _references.end()) return {};
    const auto found = table->second.find(objectId);
    if (found == table->second.end() || !found->second->tryRetain()) return {};
    return fn::AutoPtr<ObjectReference>::adopt(found->second);
}

// --- What is sent and what comes

EncodedPayload ObjectHost::encode(PayloadSource payload) const
{
    EncodedPayload encoded;
    encode(payload, encoded);
    return encoded;
}

void ObjectHost::encode(PayloadSource payload, EncodedPayload& encoded) const
{
    encoded.bytes.reserve(expectedBytes);
    fn::ByteArrayOutputStream stream(encoded.bytes);
    PayloadWriter writer(stream, *this, &encoded.objects);
    payload(writer);
}

LocalMessages::Holder ObjectHost::localMessage(const CallHead& head, PayloadSource content)
{
    auto message = _localMessages.take();
    message->source = _workerId;
    message->head = head;
    encode(content, message->content);
    return message;
}

void WorkerObjectManager::send(WorkerId target, ObjectId objectId, PayloadSource payload)
{
    if (!isAlive()) return;
    countSent(_link.sendMessage(target, objectId, [&](fn::OutputStream& stream) {
        PayloadWriter writer(stream, *this);
        payload(writer);
        return writer.objects();
    }));
}

/// Counts one more message for each of the worker's own instances among `objects`.
void WorkerObjectManager::countSent(const fn::Value& objects)
{
    if (objects.empty()) return;
    for (const auto& [key, className] : objects.entries()) {
        if (const auto sent = instance(key.to<ObjectId>())) sent->increateUsageCount();
    }
}

void WorkerObjectManager::countReceived(std::span<const ObjectId> objectIds)
{
    for (const auto objectId : objectIds) {
        if (ownerOf(objectId) == _workerId) continue;
        if (const auto received = reference(objectId)) {
            // A local one counts no messages. It is found only if its instance was made before the worker had an id.
            if (!received->local()) received->increaseUsageCount();
        } else if (!_deadWorkers.contains(ownerOf(objectId))) {
            sendRelease(objectId, 1);
        }
    }
}

fn::AutoPtr<ObjectReference> WorkerObjectManager::referenceTo(ObjectId objectId, const fn::String& className)
{
    if (ownerOf(objectId) == _workerId) {
        const auto own = instance(objectId);
        if (!FN_ASSERT(own, fn::sites::ownObjectIsThere)) return {};
        return own->localReference();
    }
    const auto known = reference(objectId);
    if (known && !isOutgrown(*known)) return known;
    return createReference(objectId, known ? known->className() : className);
}

// --- References by class

/// Whether this is a plain reference whose class has been registered since it was made.
bool WorkerObjectManager::isOutgrown(const ObjectReference& reference) const
{
    return typeid(reference) == typeid(ObjectReference) && !reference.local() && isAlive()
        && _factories.contains(reference.className());
}

fn::AutoPtr<ObjectReference> WorkerObjectManager::typedReference(const fn::AutoPtr<ObjectReference>& found)
{
    if (!found || found->dead() || !isOutgrown(*found)) return found;
    if (const auto current = reference(found->objectId()); current && !isOutgrown(*current)) return current;
    auto created = createReference(found->objectId(), found->className());
    // `created` has no use of its own. It keeps `found`, whose uses keep the instance alive.
    created->objectDeadSignal().connect([found] {}).detach();
    return created;
}

fn::AutoPtr<ObjectReference> WorkerObjectManager::createReference(ObjectId objectId, const fn::String& className)
{
    if (!isAlive()) return {};
    ObjectReferenceInitializer initializer { this, objectId, {}, className };
    const ConstructionHold hold(initializer);
    auto reference = createInstance(className, initializer);
    if (_deadWorkers.contains(ownerOf(objectId))) markDead({ reference });
    return reference;
}

void WorkerObjectManager::registerFactory(const fn::String& className, ReferenceFactory factory, bool replaces)
{
    if (replaces)
        _factories[className] = factory;
    else
        _factories.try_emplace(className, factory);
}

fn::AutoPtr<ObjectReference> WorkerObjectManager::createInstance(
    const fn::String& className, ObjectReferenceInitializer& initializer)
{
    const auto factory = _factories.find(className);
    if (factory != _factories.end()) return factory->second(initializer);
    // The dispatcher's own worker sees objects of every class through the registry.
    if (_workerId != 0 && className != plainClassName()) {
        const auto& category = factoryCategory();
        if (category.wants(2)) {
            fn::logging::writeFormatted(category, 2, {},
                { site, __LINE__, "ipc::Worker::ObjectReferenceFactory::createInstance" },
                "Couldn't create reference for class {}. Did you call 'registerObjectReferenceClass()'?",
                fmt::make_format_args(className));
        }
    }
    return fn::makeAuto<ObjectReference>(initializer);
}

// --- Deaths

void WorkerObjectManager::collectLive(LiveReferences& live, ObjectReference& reference, bool withLocal)
{
    if ((reference.local() && !withLocal) || reference.dead()) return;
    if (reference.tryRetain())
        live.push_back(fn::AutoPtr<ObjectReference>::adopt(&reference));
    else
        reference.markObjectDead(); // It is being destroyed: no callback hears of it, and it releases nothing.
}

/// Marks all references as dead before it notifies the first one, so that no callback sees some of them alive.
void WorkerObjectManager::markDead(LiveReferences references)
{
    std::vector<std::pair<ObjectId, std::size_t>> order; // Of one object, as they were given.
    order.reserve(references.size());
    for (const auto& reference : references) order.emplace_back(reference->objectId(), order.size());
    std::ranges::sort(order);
    for (const auto& [id, index] : order) references[index]->markObjectDead();
    for (const auto& [id, index] : order) references[index]->notifyObjectDead();
}

void WorkerObjectManager::workerDied(WorkerId workerId)
{
    const fn::AutoPtr self(this); // A callback may destroy the worker.
    _deadWorkers.insert(workerId);
    _requestNumbers.forget(workerId);
    LiveReferences live;
    if (const auto table = _references.find(workerId); table != _references.end()) {
        for (const auto& [objectId, reference] : table->second) collectLive(live, *reference, false);
    }
    for (auto* reference : _displaced) {
        if (ownerOf(reference->objectId()) == workerId) collectLive(live, *reference, false);
    }
    markDead(std::move(live));
    if (isAlive()) _onWorkerDied.fire(workerId);
}

void WorkerObjectManager::workerIdReused(WorkerId workerId)
{
    // References to the old worker's objects must not be taken for references to the new worker's.
    if (!_deadWorkers.erase(workerId)) return;
    for (const auto& [objectId, reference] : _references[workerId]) reference->_isOutdated = true;
    for (auto* reference : _displaced) {
        if (ownerOf(reference->objectId()) == workerId) reference->_isOutdated = true;
    }
    _references.erase(workerId);
}

void WorkerObjectManager::connectionLost()
{
    const fn::AutoPtr self(this); // A callback may destroy the worker.
    markAllDead(false);
    dropUsageHolds();
    if (isAlive()) _onWorkerDied.fire(NO_WORKER_ID);
}

void WorkerObjectManager::markAllDead(bool withLocal)
{
    LiveReferences all;
    for (const auto& [owner, table] : _references) {
        for (const auto& [objectId, reference] : table) collectLive(all, *reference, withLocal);
    }
    for (auto* reference : _displaced) collectLive(all, *reference, withLocal);
    markDead(std::move(all));
}

/// Drops the holds for other workers, since the releases that would end them can come no more.
void WorkerObjectManager::dropUsageHolds()
{
    std::vector<fn::AutoPtr<ObjectInstance>> held;
    for (const auto& [objectId, instance] : _instances) {
        if (instance->usageCount() > 0 && instance->tryRetain()) {
            held.push_back(fn::AutoPtr<ObjectInstance>::adopt(instance));
        }
    }
    for (const auto& instance : held) instance->releaseUsage(instance->usageCount());
}

} // namespace ipc
