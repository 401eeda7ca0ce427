#pragma once
#include "core/ipc/object/detail/object_host.h"
#include "foundation/mpack/serializer.h"
#include "foundation/run_loop.h"
#include "foundation/signal.h"
#include "foundation/value_map.h"
#include <exception>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

namespace ipc {

class MessageView;
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

/// Throws `fn::RuntimeException` for an object that was made before its worker was connected: it cannot be shared.
void requireConnectedOwner(ObjectId objectId);

class WorkerObjectManager;
WorkerObjectManager& managerOf(const Worker& worker); ///< Of its objects.

/// The host of a worker's objects: the tables of its instances and references, and the codec of payloads. The worker calls
/// `close()` before it goes. Belongs to the worker's loop.
///
/// The tables hold plain pointers; objects add and remove themselves. An object whose last holder has gone counts as absent,
/// although its entry stays until the object is deleted on the loop.
class WorkerObjectManager final : public ObjectHost,
                                  public fn::mpack::ValueSerializer,
                                  public fn::mpack::ValueDeserializer {
public:
    WorkerObjectManager(Worker& worker, WorkerLink& link, fn::RunLoop& loop);

    void setWorkerId(WorkerId workerId) noexcept { _workerId = workerId; }

    /// The worker has gone. Marks the references that are left as dead and notifies them.
    void close();

    void send(WorkerId target, ObjectId objectId, const fn::Value& payload) override;
    void send(WorkerId target, ObjectId objectId, const MessageFields& payload) override;
    void checkSendable(const fn::Value& value) const override;

    /// Makes references by class name.
    using ReferenceFactory = fn::AutoPtr<ObjectReference> (*)(ObjectReferenceInitializer&);
    void registerFactory(const fn::String& className, ReferenceFactory factory, bool replaces);

    /// Turns `reference` into the local one of `instance`, also for the code that holds it already.
    static void makeLocal(const fn::AutoPtr<ObjectReference>& reference, const fn::AutoPtr<ObjectInstance>& instance);

    /// Fires when a worker has died, its messages have been handled, and the references to its objects are dead.
    fn::Signal<WorkerId>& onWorkerDied() { return _onWorkerDied; }

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

    /// The payload of a MESSAGE. Nil stands for a value that could not be made (a reference class may throw).
    struct Decoded {
        fn::Value payload;
        std::exception_ptr failure; ///< The exception of the first such value; null if there is none.
    };

    /// Decodes the payload, or throws if its bytes are none. In both cases counts the message for the references to the objects
    /// that it lists, and releases it where there is no reference.
    Decoded decode(const MessageView& message);

    void workerDied(WorkerId workerId);
    /// The id of a dead worker names a new one. References to the dead one's objects stay dead, and are sent as nil.
    void workerIdReused(WorkerId workerId);
    void connectionLost(); ///< Other workers' objects are dead, and their holds dropped.

private:
    using References = std::unordered_map<ObjectId, ObjectReference*>;
    using LiveReferences = std::vector<fn::AutoPtr<ObjectReference>>;

    /// Makes `slot` point at `current` while it lives: encoding and decoding run user code that may encode or decode again.
    template <typename T> class Scope {
    public:
        Scope(T*& slot, T& current) : _slot(slot), _outer(std::exchange(slot, &current)) { }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        ~Scope() { _slot = _outer; }

    private:
        T*& _slot;
        T* _outer;
    };

    std::int8_t typeForValue(const fn::Value& value) override;
    void serializeValue(const fn::Value& value, fn::OutputStream& stream) override;
    std::uint32_t serializedLengthForValue(const fn::Value& value) override;
    fn::Value deserializeValue(std::int8_t type, std::uint32_t size, fn::InputStream& stream) override;

    template <typename Write> void sendPayload(WorkerId target, ObjectId objectId, Write write);
    template <typename Write> fn::Value encode(fn::OutputStream& stream, Write& write);
    void countSent(const fn::Value& objects);
    fn::Value decodeExtension(std::int8_t type, std::uint32_t size, fn::InputStream& stream);
    fn::Value decodeObject(ObjectId objectId);
    bool isOutgrown(const ObjectReference& reference) const;
    fn::AutoPtr<ObjectReference> createReference(ObjectId objectId, const fn::String& className);
    fn::AutoPtr<ObjectReference> createInstance(const fn::String& className, ObjectReferenceInitializer& initializer);
    void checkOwner(const ObjectHost* owner) const;
    void countReceived(std::span<const ObjectId> objectIds);
    void sendRelease(ObjectId objectId, std::int32_t count);
    static void collectLive(LiveReferences& live, ObjectReference& reference, bool withLocal);
    void markAllDead(bool withLocal);
    void dropUsageHolds();
    static void markDead(LiveReferences references);

    WorkerLink& _link; // Used while the worker is there.
    std::map<fn::String, ReferenceFactory> _factories; // By class name.
    fn::Signal<WorkerId> _onWorkerDied;
    std::unordered_map<ObjectId, ObjectInstance*> _instances;
    std::unordered_map<WorkerId, References> _references; // By owner: a death concerns one owner's.
    std::vector<ObjectReference*> _displaced; // Replaced by a newer reference, not destroyed yet.
    std::uint64_t _nextSequence = 0;
    std::uint64_t _nextEarlySequence = 0; // For objects that are made before the worker is connected.
    // Of the payload that is being encoded or decoded, which can nest: its OBJECTS, new references and first failure.
    fn::Value* _objects = nullptr;
    std::vector<fn::AutoPtr<ObjectReference>>* _made = nullptr;
    std::exception_ptr* _failure = nullptr;
    WorkerIdSet _deadWorkers;
};

} // namespace ipc
