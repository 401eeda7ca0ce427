#pragma once
#include "base/exceptions.h"
#include "base/weak_ptr.h"
#include "core/ipc/object/object_reference.h"
#include "core/ipc/object/payload_writer.h"

namespace ipc {

/// A shared object in its owner, the worker in which it lives. All workers, also the owner, use it through references. It lives
/// while code in its process holds it, or another worker holds a reference.
///
/// It belongs to its worker's loop and is deleted there. An instance that nobody holds after its construction is destroyed on
/// the loop's next turn. An instance that outlives its worker sends nothing any more.
class FN_EXPORT ObjectInstance : public fn::RefCountedObject {
public:
    explicit ObjectInstance(Worker& worker); ///< The worker must be connected.

    ObjectId objectId() const { return _objectId; } ///< By what all workers know it.
    Worker& worker() const; ///< After the worker's end: `fn::NullPointerException`.
    fn::RunLoop& loop() const; ///< The worker's; everything here happens on it.

    /// The reference that stands for this instance in its own worker: the same one as long as somebody holds it. Empty
    /// once the last holder of the instance has gone.
    fn::AutoPtr<ObjectReference> localReference();

    /// Sends a message to the reference in one worker, or with NO_WORKER_ID to those in all workers. Throws what encoding throws.
    /// Messages that a constructor sends leave after construction, in their order; what encoding them throws goes to
    /// `fn::unhandledException()`.
    void sendMessage(WorkerId workerId, const fn::Value& value);
    void broadcast(const fn::Value& value) { sendMessage(NO_WORKER_ID, value); } ///< To the references in all workers.

protected:
    void deleteInstance() override;
    ~ObjectInstance() override;

    void sendFields(WorkerId workerId, const MessageFields& fields); ///< Like `sendMessage()` of a map of these fields.

    bool isConstructed() const { return _ready; } ///< True from the loop's next turn on.
    void afterConstruction(fn::Task task); ///< Runs `task` after construction; several tasks in their order.

    virtual void onMessage(WorkerId sourceWorkerId, const fn::Value& message); ///< Default: nothing.

    // For the library's own classes.
    /// `onMessage()` is not called then.
    void setPayloadReceiver(PayloadReceiver& receiver) { _payloadReceiver = &receiver; }
    /// Like `sendMessage()` of a message with that head; `content` writes its argument or result.
    void sendCall(WorkerId workerId, const CallHead& head, PayloadSource content);
    ObjectHost& host() const; ///< For the library: the worker's tables.

    /// A new reference of the class that matches this one, never null. Default: a plain ObjectReference.
    virtual fn::AutoPtr<ObjectReference> createReference(ObjectReferenceInitializer& initializer);

private:
    friend class IdleTermination;
    friend class ObjectReference;
    friend class PayloadWriter;
    friend class Worker;
    friend class WorkerObjectManager;
    class ConstructionTask;

    void increateUsageCount(); // A message has taken this instance to another worker: adds a hold.
    void decreaseUsageCount();
    void releaseUsage(std::int32_t count); // Drops `count` holds. Reports a broken invariant if there are fewer.
    std::int32_t usageCount() const { return _usageCount; }
    void deliverLocally(const fn::Value& value);
    void receive(WorkerId source, PayloadReader& payload);
    void receive(WorkerId source, const CallHead& head, PayloadReader& content);
    void receive(WorkerId source, const fn::Value& message, const std::exception_ptr& failure);

    const fn::AutoPtr<ObjectHost> _host;
    const ObjectId _objectId;
    fn::WeakPtr<ObjectReference> _localReference;
    ConstructionTask* _constructionTask = nullptr; // Owned by the loop's queue; null when it has gone.
    PayloadReceiver* _payloadReceiver = nullptr;
    bool _ready = false;
    std::int32_t _usageCount = 0;
};

} // namespace ipc
