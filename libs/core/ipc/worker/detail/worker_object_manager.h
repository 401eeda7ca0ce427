#pragma once
#include "core/ipc/object/detail/request_numbers.h"
#include "core/ipc/wire/message.h"
#include "core/ipc/wire/message_fields.h"
#include "core/ipc/worker/detail/worker_id_set.h"
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
class ObjectInstance;
class ObjectReference;
class Worker;
class WorkerLink;
struct ObjectReferenceInitializer;

/// An object that was made before its worker was connected cannot be shared: `fn::RuntimeException`.
void requireConnectedOwner(ObjectId objectId);

/// What the objects of a worker have of it: a way to send, its loop and id, and whether it is still there; the tables of its
/// instances and references, and the codec of payloads.
///
/// The objects of a worker share it, so that they may outlive the worker: once the worker has gone (`close()`), `isAlive()` is
/// false, and what objects unregister or send goes nowhere. The run loop outlives both. Belongs to the worker's loop.
///
/// The tables hold plain pointers; objects add and remove themselves. An object whose last reference has gone counts as
/// absent, although its entry stays until its deletion on the loop.
class WorkerObjectManager final : public fn::RefCountedBase,
                                  public fn::mpack::ValueSerializer,
                                  public fn::mpack::ValueDeserializer {
public:
    WorkerObjectManager(WorkerLink& link, fn::RunLoop& loop);

    bool isAlive() const noexcept { return _link; } ///< False once the worker has gone.
    Worker& worker() const; ///< Once it has gone: `fn::NullPointerException`.
    fn::RunLoop& loop() const noexcept { return _loop; }
    WorkerId workerId() const noexcept { return _workerId; }
    void setWorkerId(WorkerId workerId) noexcept { _workerId = workerId; }
    RequestNumbers& requestNumbers() noexcept { return _requestNumbers; }

    /// The worker has gone: what is left of its references is dead, and is notified.
    void close();

    /// Sends a payload to the holders of an object, or to one worker. Throws what encoding throws; then nothing has been sent or
    /// counted. Before the worker is connected: `fn::RuntimeException`; once the connection has ended it does nothing.
    void send(WorkerId target, ObjectId objectId, const fn::Value& payload);
    void send(WorkerId target, ObjectId objectId, MessageFields payload);

    /// Makes references by class name.
    using ReferenceFactory = fn::AutoPtr<ObjectReference> (*)(ObjectReferenceInitializer&);
    void registerFactory(const fn::String& className, ReferenceFactory factory, bool replaces);

    /// Turns `reference` into the local one of `instance`. Whoever holds it already reaches the instance, too.
    static void makeLocal(const fn::AutoPtr<ObjectReference>& reference, const fn::AutoPtr<ObjectInstance>& instance);

    /// Everything of a dead worker has been handled, and its objects are dead.
    fn::Signal<WorkerId>& onWorkerDied() { return _onWorkerDied; }

    /// Before the worker is connected it gives ids whose owner is NO_WORKER_ID, and reports a broken invariant.
    ObjectId nextObjectId();
    void registerInstance(ObjectInstance& instance);
    void unregisterInstance(ObjectInstance* instance);
    void registerReference(ObjectReference& reference);
    void unregisterReference(ObjectReference* reference);
    fn::AutoPtr<ObjectInstance> instance(ObjectId objectId) const; ///< Empty if absent or dying.
    fn::AutoPtr<ObjectReference> reference(ObjectId objectId) const; ///< Empty if absent or dying.

    /// The same object by a reference of its class, where that has been registered after `found` was made as a plain one.
    fn::AutoPtr<ObjectReference> typedReference(const fn::AutoPtr<ObjectReference>& found);

    template <typename Visitor> bool anyInstance(Visitor visitor) const
    {
        for (const auto& [objectId, instance] : _instances) {
            if (visitor(*instance)) return true;
        }
        return false;
    }

    /// Throws for a boxed value or object that no receiver could use: one that is not shared, or that another worker of this
    /// process shares, which would not know that it has been sent.
    void checkSendable(const fn::Value& value) const;

    /// The payload of a MESSAGE. Where something in it could not be made (a reference class may throw), nil stands for it.
    struct Decoded {
        fn::Value payload;
        std::exception_ptr failure; ///< Of the first such part; null for none.
    };

    /// What the message lists is counted for the references that it brought, and released where it brought none, also when
    /// this throws: the bytes are no payload.
    Decoded decode(const MessageView& message);

    void workerDied(WorkerId workerId);
    /// The id of a dead worker has been given out again. Old references to its objects stay dead, and are nil to others.
    void workerIdReused(WorkerId workerId);
    void connectionLost(); ///< Everybody else's objects are gone.

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
    void checkOwner(const WorkerObjectManager* owner) const;
    void countReceived(std::span<const ObjectId> objectIds);
    void sendRelease(ObjectId objectId, std::int32_t count);
    static void collectLive(LiveReferences& live, ObjectReference& reference, bool withLocal);
    void markAllDead(bool withLocal);
    void dropUsageHolds();
    static void markDead(LiveReferences references);

    WorkerLink* _link; // Null once the worker has gone.
    fn::RunLoop& _loop;
    std::map<fn::String, ReferenceFactory> _factories; // By class name.
    fn::Signal<WorkerId> _onWorkerDied;
    WorkerId _workerId = NO_WORKER_ID;
    std::unordered_map<ObjectId, ObjectInstance*> _instances;
    std::unordered_map<WorkerId, References> _references; // By owner: a death concerns one owner's.
    std::vector<ObjectReference*> _displaced; // Not destroyed yet, while another one is in the table for the object.
    std::uint64_t _nextSequence = 0;
    std::uint64_t _nextEarlySequence = 0; // Of objects that were made before the worker was connected.
    fn::Value* _objects = nullptr; // Of the payload being encoded or decoded; both can nest, since they run user code.
    std::vector<fn::AutoPtr<ObjectReference>>* _made = nullptr; // Of the payload being decoded: its new references.
    std::exception_ptr* _failure = nullptr; // Of the payload being decoded.
    WorkerIdSet _deadWorkers;
    RequestNumbers _requestNumbers;
};

} // namespace ipc
