#pragma once
#include "base/exceptions.h"
#include "base/ref_counted.h"
#include "core/ipc/object/detail/request_numbers.h"
#include "core/ipc/wire/message.h"
#include <typeinfo>

namespace fn {
class RunLoop;
}

namespace ipc {

class MessageFields;
class ObjectInstance;
class ObjectReference;
class Worker;

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
    virtual void send(WorkerId target, ObjectId objectId, const fn::Value& payload) = 0;
    virtual void send(WorkerId target, ObjectId objectId, const MessageFields& payload) = 0;

    /// Throws for a boxed value that has no form on the wire, an object that is not shared, and an object of another worker of
    /// this process, which would not know that it has been sent.
    virtual void checkSendable(const fn::Value& value) const = 0;

    /// Before the worker is connected, gives ids with the owner NO_WORKER_ID and reports a broken invariant.
    virtual ObjectId nextObjectId() = 0;
    virtual void registerInstance(ObjectInstance& instance) = 0;
    virtual void unregisterInstance(ObjectInstance* instance) = 0;
    virtual void registerReference(ObjectReference& reference) = 0;
    virtual void unregisterReference(ObjectReference* reference) = 0;

protected:
    ObjectHost(Worker& worker, fn::RunLoop& loop) : _worker(&worker), _loop(loop) { }

    Worker* _worker; // Null once it has gone.
    fn::RunLoop& _loop;
    WorkerId _workerId = NO_WORKER_ID;
    RequestNumbers _requestNumbers;
};

} // namespace ipc
