#pragma once
#include "base/exceptions.h"
#include "core/ipc/object/callable_object_reference.h"
#include "core/ipc/worker/worker.h"
#include <set>

namespace ipc {

/// Finds shared objects by the class they are shared as, in whichever worker they live. Every worker has a reference to the
/// registry (`Worker::registry()`), which belongs to the worker's loop.
class FN_EXPORT Registry final : public CallableObjectReference {
public:
    explicit Registry(ObjectReferenceInitializer& initializer); ///< Made by the worker, which holds it.

    /// Offers an instance under its reference's class name, and keeps it alive, until its worker ends. A look-up gives the
    /// instance of the highest priority, and among equal ones the latest. Fails if the instance belongs to another worker or was
    /// made before this one was connected, or if there are too many (core/ipc/limits.h); when the registry has gone, with
    /// `ipc::ObjectDeadException`. Needs a running loop.
    fn::Promise<void> registerObject(const fn::AutoPtr<ObjectInstance>& instance, int priority);

    /// Looks up the instance that is shared as T, and registers T with the worker unless its class name is registered. If there is
    /// none, waits up to `timeout` for one, then fails with `fn::OperationTimedOutException`. Never gives null: if the object
    /// found is not of class T, fails with a `fn::RuntimeException` that names both classes. Cancelling stops the wait here;
    /// the registry forgets the look-up at its time-out. Needs a running loop.
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

    /// Lets look-ups skip the instances of this worker, or find them again.
    fn::Promise<void> setInstancesHidden(bool hidden);
    bool isInstanceRegistered(const fn::AutoPtr<ObjectInstance>& instance) const;

    std::set<fn::AutoPtr<ObjectInstance>> _registeredInstances;
};

} // namespace ipc
