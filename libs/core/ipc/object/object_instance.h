#pragma once
#include "base/exceptions.h"
#include "base/weak_ptr.h"
#include "core/ipc/object/object_reference.h"
#include "core/ipc/wire/message_fields.h"

namespace ipc {

/// A shared object where it lives. Other workers, and its own, use it through references; it stays alive while anybody
/// holds it here or a reference elsewhere.
///
/// It belongs to its worker's loop and is deleted there. An instance that nobody keeps after its construction is destroyed
/// on the loop's next turn. It may outlive its worker: it sends nothing any more then.
class FN_EXPORT ObjectInstance : public fn::RefCountedObject {
public:
    explicit ObjectInstance(Worker& worker); ///< The worker must be connected.

    ObjectId objectId() const { return _objectId; }
    Worker& worker() const; ///< After the worker's end: `fn::NullPointerException`.
    fn::RunLoop& loop() const;

    /// The reference that stands for this instance in its own worker: the same one as long as somebody holds it. Empty
    /// once the last holder of the instance has gone.
    fn::AutoPtr<ObjectReference> localReference();

    /// Sends a message to the references of one worker, or (NO_WORKER_ID) of all. From a constructor it leaves after
    /// construction, in the order of the calls. Throws what encoding throws, then and there; what leaves later gives that to
    /// `fn::unhandledException()`.
    void sendMessage(WorkerId workerId, const fn::Value& value);
    void broadcast(const fn::Value& value) { sendMessage(NO_WORKER_ID, value); }

protected:
    void deleteInstance() override;
    ~ObjectInstance() override;

    void sendFields(WorkerId workerId, MessageFields fields); ///< As `sendMessage()` of that map.

    bool isConstructed() const { return _ready; } ///< Of the loop's next turn on.
    void afterConstruction(fn::Task task); ///< Runs it once constructed, in the order of the calls.

    virtual void onMessage(WorkerId sourceWorkerId, const fn::Value& message); ///< Default: nothing.

    /// A new reference of the class that matches this one, never null. Default: a plain ObjectReference.
    virtual fn::AutoPtr<ObjectReference> createReference(ObjectReferenceInitializer& initializer);

private:
    friend class IdleTermination;
    friend class ObjectReference;
    friend class Worker;
    friend class WorkerObjectManager;
    class ConstructionTask;

    void increateUsageCount(); // One more message took this instance to another worker: one more hold.
    void decreaseUsageCount();
    void releaseUsage(std::int32_t count); // `count` times; more than is held is reported.
    std::int32_t usageCount() const { return _usageCount; }
    void deliverLocally(const fn::Value& value);

    fn::AutoPtr<WorkerObjectManager> _manager;
    const ObjectId _objectId;
    fn::WeakPtr<ObjectReference> _localReference;
    ConstructionTask* _constructionTask = nullptr; // Borrowed from the loop while it is posted.
    bool _ready = false;
    std::int32_t _usageCount = 0;
};

} // namespace ipc
