#pragma once
#include "base/exceptions.h"
#include "core/ipc/object/callable_object_reference.h"
#include "core/ipc/worker/worker.h"
#include <set>

namespace ipc {

/// Finds shared objects by the class they are shared as, in whichever worker they live. Every worker has one
/// (`Worker::registry()`). Belongs to its worker's loop.
class FN_EXPORT Registry final : public CallableObjectReference {
public:
    explicit Registry(ObjectReferenceInitializer& initializer);

    /// Offers an instance under its reference's class name until its worker dies. Look-ups get the highest priority; among
    /// equal ones the latest. The registry keeps the instance alive, here and there. Fails where the instance belongs to another
    /// worker or was made before this one was connected, or where there are too many (core/ipc/limits.h); once the registry
    /// has gone with `ipc::ObjectDeadException`. Needs a running loop.
    fn::Promise<void> registerObject(const fn::AutoPtr<ObjectInstance>& instance, int priority);

    /// The instance shared as T (a reference class, which is registered with the worker where nobody has done that); waits up
    /// to `timeout` for one to be registered, then fails with `fn::OperationTimedOutException`; never gives null: where the
    /// object is none of class T it fails with a `fn::RuntimeException` that names both. Cancelling stops waiting here; the
    /// registry forgets the look-up at its time-out. Needs a running loop.
    template <typename T> fn::Promise<fn::AutoPtr<T>> getInstance(fn::Duration timeout)
    {
        const auto className = classNameOf<T>();
        if (hasWorker()) worker().registerFactory(className, Worker::makeReference<T>, false);
        return findInstance(className, timeout).then([self = fn::AutoPtr(this), className](fn::Value&& found) {
            const auto reference = self->typedReference(found);
            auto instance = fn::dynamicCast<T>(reference);
            if (!instance) throwOtherClass(className, reference);
            return instance;
        });
    }

    ~Registry() override;

private:
    friend class IdleTermination;

    fn::Promise<fn::Value> findInstance(const fn::String& className, fn::Duration timeout);
    fn::AutoPtr<ObjectReference> typedReference(const fn::Value& found) const;
    [[noreturn]] static void throwOtherClass(const fn::String& wanted, const fn::AutoPtr<ObjectReference>& found);

    /// Look-ups skip (or again find) the instances of this worker.
    fn::Promise<void> setInstancesHidden(bool hidden);
    bool isInstanceRegistered(const fn::AutoPtr<ObjectInstance>& instance) const;

    std::set<fn::AutoPtr<ObjectInstance>> _registeredInstances;
};

} // namespace ipc
