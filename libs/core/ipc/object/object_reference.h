#pragma once
#include "base/exceptions.h"
#include "base/function_ref.h"
#include "base/ref_counted.h"
#include "core/ipc/wire/message.h"
#include "foundation/run_loop.h"
#include "foundation/signal.h"
#include <type_traits>

namespace ipc {

class MessageFields;
struct CallHead;
class ObjectHost;
class ObjectInstance;
class Worker;
class ObjectReference;
class PayloadReader;
class PayloadReceiver;
class PayloadWriter;

/// Code that constructs a reference makes a hold on its stack. The hold keeps the reference until its constructor has returned,
/// so that a temporary `fn::AutoPtr(this)` does not delete it.
class FN_EXPORT ConstructionHold {
public:
    /// For the code that is about to make a reference with it.
    explicit ConstructionHold(struct ObjectReferenceInitializer& initializer);
    ConstructionHold(const ConstructionHold&) = delete;
    ConstructionHold& operator=(const ConstructionHold&) = delete;
    ~ConstructionHold(); ///< Lets go of the reference, which its maker holds by then.

private:
    friend class ObjectReference;

    ObjectReference* _reference = nullptr; // The first one made with the initializer.
};

/// The one argument of every reference's constructor; filled by the worker that makes the reference.
struct FN_EXPORT ObjectReferenceInitializer {
    ObjectReferenceInitializer() = default;
    /// `instance` is set for a local reference, `className` may be empty.
    ObjectReferenceInitializer(
        ObjectHost* host, ObjectId objectId, fn::AutoPtr<ObjectInstance> instance, fn::String className);
    ObjectReferenceInitializer(const ObjectReferenceInitializer&); ///< Without the hold.
    ObjectReferenceInitializer& operator=(const ObjectReferenceInitializer&) = delete;
    ~ObjectReferenceInitializer();

    ObjectHost* host = nullptr; ///< The worker's; null only in `ObjectReference::_dummyInitializer`.
    ObjectId objectId = 0; ///< The object's.
    fn::AutoPtr<ObjectInstance> instance; ///< Set for a local reference.
    fn::String className; ///< As the sender named it; may be empty.
    ConstructionHold* hold = nullptr; ///< On the stack of the code that makes the reference.
};

/// A shared object as its users see it, in any worker. In the instance's own worker it is *local*: messages take a short-cut
/// through the run loop and still never run inside the sender's call.
///
/// Belongs to its worker's loop; it is deleted there, never inside the release of its last holder.
class FN_EXPORT ObjectReference : public fn::RefCountedObject {
public:
    /// A derived constructor may take `fn::AutoPtr(this)`, send and call. It also runs for `classNameOf()`, without a worker:
    /// calls fail then. If it throws, the message that brought the object fails.
    explicit ObjectReference(ObjectReferenceInitializer& initializer);

    /// An initializer without worker and object, for asking a class for its name.
    static ObjectReferenceInitializer _dummyInitializer;

    /// The class name that references of class T report. Makes a T, asks it and destroys it.
    template <typename T> static fn::String classNameOf()
    {
        static_assert(
            std::is_base_of_v<ObjectReference, T>, "T must be a reference class: derived from ObjectReference");
        ObjectReferenceInitializer initializer(_dummyInitializer);
        const ConstructionHold hold(initializer);
        return fn::makeAuto<T>(initializer)->className();
    }

    ObjectId objectId() const { return _objectId; } ///< By what all workers know the object.
    bool local() const { return static_cast<bool>(_instance); } ///< Whether the instance lives in this worker.
    bool dead() const { return _dead; } ///< Whether the instance's worker has gone; final.
    /// Fires once, when the reference becomes dead. A callback that is connected later is called at once.
    fn::Signal<>& objectDeadSignal() { return _objectDeadSignal; }
    fn::RunLoop& loop() const; ///< Without a worker: `fn::NullPointerException`.

    /// The class this object is shared as: what the sender named, else the name of the reference's own type.
    virtual fn::String className() const;
    fn::String toString() const override; ///< "ObjectReference (class, address)".

    /// Sends a message to the instance. Does nothing when this worker or that of the instance has gone. Throws what encoding
    /// throws.
    void sendMessage(const fn::Value& value);

    ~ObjectReference() override;

protected:
    void deleteInstance() override;

    Worker& worker() const; ///< Without a worker, or after its end: `fn::NullPointerException`.
    bool hasWorker() const; ///< Whether `worker()` still exists.

    /// For the library: the worker's tables, while `hasWorker()`.
    ObjectHost& host() const;
    void sendFields(const MessageFields& fields); ///< Like `sendMessage()` of a map of these fields.
    /// For the library: like `sendMessage()` of a message with that head; `content` writes the argument.
    void sendCall(const CallHead& head, fn::FunctionRef<void(PayloadWriter&)> content);
    /// `onMessage()` is not called then.
    void setPayloadReceiver(PayloadReceiver& receiver) { _payloadReceiver = &receiver; }

    virtual void onMessage(const fn::Value& message); ///< Handles a message of the instance. Default: nothing.

    /// Called after `objectDeadSignal()` has fired. Default: nothing. An exception goes to `fn::unhandledException()`.
    virtual void onObjectDead();

private:
    friend class ConstructionHold;
    friend class ObjectInstance;
    friend class PayloadWriter;
    friend class Worker;
    friend class WorkerObjectManager;

    void receive(PayloadReader& payload);
    void receive(const CallHead& head, PayloadReader& content);
    void receive(const fn::Value& message, const std::exception_ptr& failure);
    void increaseUsageCount();
    std::int32_t usageCount() const { return _usageCount; }
    void markObjectDead() { _dead = true; }
    void notifyObjectDead();

    const fn::AutoPtr<ObjectHost> _host;
    const ObjectId _objectId;
    fn::AutoPtr<ObjectInstance> _instance; // Set only for a local reference.
    fn::Signal<> _objectDeadSignal;
    const fn::String _className;
    ConstructionHold* _constructionHold = nullptr; // Set while it holds this reference.
    PayloadReceiver* _payloadReceiver = nullptr;
    bool _dead = false;
    bool _isOutdated = false; // The owner's id was given out again: `_objectId` may name another worker's object.
    std::int32_t _usageCount = 0; // Messages that brought this remote reference and are not released yet.
};

} // namespace ipc
