#pragma once
#include "base/exceptions.h"
#include "base/ref_counted.h"
#include "core/ipc/object/detail/local_messages.h"
#include "core/ipc/object/detail/request_numbers.h"
#include "core/ipc/object/payload_writer.h"
#include "core/ipc/wire/message.h"
#include "foundation/signal.h"
#include <span>
#include <typeinfo>

namespace fn {
class RunLoop;
}

namespace ipc {

class Worker;

/// Throws `fn::RuntimeException` for an object that was made before its worker was connected: it cannot be shared.
void requireConnectedOwner(ObjectId objectId);

/// What the objects of a worker have of it: a way to send, the loop, the worker's id, whether the worker is still there, and
/// tables in which they are found by id.
///
/// The objects share it, so that they may outlive the worker. Once the worker has gone, `isAlive()` is false, and what objects
/// send or unregister goes nowhere. The run loop outlives both. Belongs to that loop.
class ObjectHost : public fn::RefCountedBase {
public:
    bool isAlive() const noexcept { return _worker; } ///< False once the worker has gone.
    Worker& worker() const ///< Once it has gone: `fn::NullPointerException`.
    {
        if (!_worker) fn::internal::throwNullPointer(typeid(ObjectHost));
        return *_worker;
    }
    fn::RunLoop& loop() const noexcept { return _loop; }
    WorkerId workerId() const noexcept { return _workerId; } ///< NO_WORKER_ID until the worker is connected.
    RequestNumbers& requestNumbers() noexcept { return _requestNumbers; }

    /// Sends a payload to the holders of an object, or to one worker. Throws what encoding throws; then nothing has been sent or
    /// counted. Before the worker is connected: `fn::RuntimeException`; once the connection has ended it does nothing.
    virtual void send(WorkerId target, ObjectId objectId, PayloadSource payload) = 0;

    /// Encodes a payload for a receiver in this worker. Throws what encoding throws; no size is too large.
    EncodedPayload encode(PayloadSource payload) const;

    /// A message of one of the worker's objects to another one, or to itself. Throws what encoding throws.
    LocalMessages::Holder localMessage(const CallHead& head, PayloadSource content);

    /// The object of an id that came, as what this worker knows it by, or else as a new reference. Empty if its owner has gone.
    virtual fn::AutoPtr<ObjectReference> referenceTo(ObjectId objectId, const fn::String& className) = 0;

    /// A message has come that lists these objects, and the references to them have been made.
    virtual void countReceived(std::span<const ObjectId> objectIds) = 0;

    /// Has references to objects of this class made by `factory`. An earlier one of the same name stays, unless `replaces`.
    using ReferenceFactory = fn::AutoPtr<ObjectReference> (*)(ObjectReferenceInitializer&);
    virtual void registerFactory(const fn::String& className, ReferenceFactory factory, bool replaces) = 0;

    /// Fires when a worker has died, its messages have been handled, and the references to its objects are dead; with NO_WORKER_ID
    /// when this worker's connection has ended, and all others have gone with it.
    fn::Signal<WorkerId>& onWorkerDied() { return _onWorkerDied; }

    /// Before the worker is connected, gives ids with the owner NO_WORKER_ID and reports a broken invariant.
    virtual ObjectId nextObjectId() = 0;
    virtual void registerInstance(ObjectInstance& instance) = 0;
    virtual void unregisterInstance(ObjectInstance* instance) = 0;
    virtual void registerReference(ObjectReference& reference) = 0;
    virtual void unregisterReference(ObjectReference* reference) = 0;

private:
    void encode(PayloadSource payload, EncodedPayload& encoded) const;

protected:
    ObjectHost(Worker& worker, fn::RunLoop& loop) : _worker(&worker), _loop(loop) { }
    explicit ObjectHost(fn::RunLoop& loop) : _worker(nullptr), _loop(loop) { }

    Worker* _worker; // Null once it has gone.
    fn::RunLoop& _loop;
    WorkerId _workerId = NO_WORKER_ID;
    RequestNumbers _requestNumbers;
    LocalMessages _localMessages;
    fn::Signal<WorkerId> _onWorkerDied;
};

} // namespace ipc
