#pragma once
#include "core/ipc/object/detail/object_host.h"
#include "foundation/run_loop.h"
#include "foundation/signal.h"
#include "foundation/value_map.h"
#include <exception>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

namespace ipc {

class WorkerLink;
struct ObjectReferenceInitializer;

/// A set of worker ids, of one bit each: a worker that lives long hears of many deaths.
class WorkerIdSet {
public:
    bool contains(WorkerId id) const { return id < _members.size() && _members[id]; }

    void insert(WorkerId id)
    {
        if (id >= _members.size()) _members.resize(id + std::size_t(1));
        _members[id] = true;
    }

    /// Gives whether the set contained the id.
    bool erase(WorkerId id)
    {
        const bool wasThere = contains(id);
        if (wasThere) _members[id] = false;
        return wasThere;
    }

private:
    std::vector<bool> _members; // By id, up to the greatest one that was ever inserted.
};

class WorkerObjectManager;
WorkerObjectManager& managerOf(const Worker& worker); ///< Of its objects.

/// The host of a worker's objects: the tables of its instances and references. The worker calls `close()` before it goes. Belongs to
/// the worker's loop.
///
/// The tables hold plain pointers; objects add and remove themselves. An object whose last holder has gone counts as absent,
/// although its entry stays until the object is deleted on the loop.
class WorkerObjectManager final : public ObjectHost {
public:
    WorkerObjectManager(Worker& worker, WorkerLink& link, fn::RunLoop& loop);

    void setWorkerId(WorkerId workerId) noexcept { _workerId = workerId; }

    /// The worker has gone. Marks the references that are left as dead and notifies them.
    void close();

    void send(WorkerId target, ObjectId objectId, PayloadSource payload) override;
    fn::AutoPtr<ObjectReference> referenceTo(ObjectId objectId, const fn::String& className) override;

    /// The dispatcher has counted these: each reference counts the message; without a reference it is released at once.
    void countReceived(std::span<const ObjectId> objectIds) override;
    void registerFactory(const fn::String& className, ReferenceFactory factory, bool replaces) override;

    /// Turns `reference` into the local one of `instance`, also for the code that holds it already.
    static void makeLocal(const fn::AutoPtr<ObjectReference>& reference, const fn::AutoPtr<ObjectInstance>& instance);

    ObjectId nextObjectId() override;
    void registerInstance(ObjectInstance& instance) override;
    void unregisterInstance(ObjectInstance* instance) override;
    void registerReference(ObjectReference& reference) override;
    void unregisterReference(ObjectReference* reference) override;
    fn::AutoPtr<ObjectInstance> instance(ObjectId objectId) const; ///< Empty if absent or dying.
    fn::AutoPtr<ObjectReference> reference(ObjectId objectId) const; ///< Empty if absent or dying.

    /// A reference of its class to the object of `found`, if `found` is plain and the class was registered later; else `found`.
    fn::AutoPtr<ObjectReference> typedReference(const fn::AutoPtr<ObjectReference>& found);

    template <typename Visitor> bool anyInstance(Visitor visitor) const
    {
        for (const auto& [objectId, instance] : _instances) {
            if (visitor(*instance)) return true;
        }
        return false;
    }

    void workerDied(WorkerId workerId);
    /// The id of a dead worker names a new one. References to the dead one's objects stay dead, and are sent as nil.
    void workerIdReused(WorkerId workerId);
    void connectionLost(); ///< Other workers' objects are dead, and their holds dropped.

private:
    using References = std::unordered_map<ObjectId, ObjectReference*>;
    using LiveReferences = std::vector<fn::AutoPtr<ObjectReference>>;

    void countSent(const fn::Value& objects);
    bool isOutgrown(const ObjectReference& reference) const;
    fn::AutoPtr<ObjectReference> createReference(ObjectId objectId, const fn::String& className);
    fn::AutoPtr<ObjectReference> createInstance(const fn::String& className, ObjectReferenceInitializer& initializer);
    void sendRelease(ObjectId objectId, std::int32_t count);
    static void collectLive(LiveReferences& live, ObjectReference& reference, bool withLocal);
    void markAllDead(bool withLocal);
    void dropUsageHolds();
    static void markDead(LiveReferences references);

    WorkerLink& _link; // Used while the worker is there.
    std::map<fn::String, ReferenceFactory> _factories; // By class name.
    std::unordered_map<ObjectId, ObjectInstance*> _instances;
    std::unordered_map<WorkerId, References> _references; // By owner: a death concerns one owner's.
    std::vector<ObjectReference*> _displaced; // Replaced by a newer reference, not destroyed yet.
    std::uint64_t _nextSequence = 0;
    std::uint64_t _nextEarlySequence = 0; // For objects that are made before the worker is connected.
    WorkerIdSet _deadWorkers;
};

} // namespace ipc
