#pragma once
#include "core/ipc/wire/message.h"
#include "core/ipc/wire/message_fields.h"
#include "foundation/exceptions.h"
#include "foundation/ref_counted.h"
#include "foundation/run_loop.h"
#include "foundation/signal.h"

namespace ipc {

class ObjectInstance;
class Worker;
class WorkerObjectManager;

/// The one argument of every reference's constructor; filled by the worker that makes the reference.
struct FN_EXPORT ObjectReferenceInitializer {
    ObjectReferenceInitializer() = default;
    ObjectReferenceInitializer(
        WorkerObjectManager* manager, ObjectId objectId, fn::AutoPtr<ObjectInstance> instance, fn::String className);
    ObjectReferenceInitializer(const ObjectReferenceInitializer&);
    ObjectReferenceInitializer& operator=(const ObjectReferenceInitializer&);
    ~ObjectReferenceInitializer();

    WorkerObjectManager* manager = nullptr; ///< Of the worker; null only in `ObjectReference::_dummyInitializer`.
    ObjectId objectId = 0;
    fn::AutoPtr<ObjectInstance> instance; ///< Set for a local reference.
    fn::String className; ///< As the sender named it; may be empty.
};

/// A shared object as its users see it, in any worker. In the instance's own worker it is *local*: messages take a short-cut
/// through the run loop and still never run inside the sender's call.
///
/// Belongs to its worker's loop; it is deleted there, never inside the release of its last holder.
class FN_EXPORT ObjectReference : public fn::RefCountedObject {
public:
    explicit ObjectReference(ObjectReferenceInitializer& initializer);

    /// For asking a class for its name: no worker, no object.
    static ObjectReferenceInitializer _dummyInitializer;

    ObjectId objectId() const { return _objectId; }
    bool local() const { return static_cast<bool>(_instance); }
    bool dead() const { return _dead; } ///< Its worker has gone; it comes back no more.
    fn::Signal<>& objectDeadSignal()
    {
        return _objectDeadSignal;
    } ///< Fires once; who connects later is called at once.
    fn::RunLoop& loop() const; ///< Without a worker: `fn::NullPointerException`.

    /// The class this object is shared as: what the sender named, else the name of the reference's own type.
    virtual fn::String className() const;
    fn::String toString() const override; ///< "ObjectReference (class, address)".

    /// Sends a message to the instance. Once this worker or the instance's has gone it goes nowhere. Throws what encoding
    /// throws.
    void sendMessage(const fn::Value& value);

    ~ObjectReference() override; ///< Public for samples (`_dummyInitializer`) alone.

protected:
    void deleteInstance() override;

    Worker& worker() const; ///< Without a worker, or after its end: `fn::NullPointerException`.
    bool hasWorker() const; ///< Whether `worker()` is there.

    void sendFields(MessageFields fields); ///< As `sendMessage()` of that map.

    virtual void onMessage(const fn::Value& message); ///< A message of the instance. Default: nothing.

    /// After the signal has fired. Default: nothing. An exception goes to `fn::unhandledException()`.
    virtual void onObjectDead();

private:
    friend class ObjectInstance;
    friend class Worker;
    friend class WorkerObjectManager;

    void increaseUsageCount();
    std::int32_t usageCount() const { return _usageCount; }
    void markObjectDead() { _dead = true; }
    void notifyObjectDead();

    fn::AutoPtr<WorkerObjectManager> _manager;
    const ObjectId _objectId;
    fn::AutoPtr<ObjectInstance> _instance; // Set only for a local reference.
    fn::Signal<> _objectDeadSignal;
    const fn::String _className;
    bool _dead = false;
    std::int32_t _usageCount = 0; // Messages that brought a remote reference and are not released yet.
};

} // namespace ipc
