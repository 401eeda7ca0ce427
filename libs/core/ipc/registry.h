#pragma once
#include "core/ipc/object/callable_object_reference.h"
#include "foundation/exceptions.h"
#include <set>

namespace ipc {

/// Finds shared objects by the class they are shared as, in whichever worker they live. Every worker has one
/// (`Worker::registry()`). Belongs to its worker's loop.
class FN_EXPORT Registry final : public CallableObjectReference {
public:
    explicit Registry(ObjectReferenceInitializer& initializer);

    /// Offers an instance under its reference's class name until its worker dies. Look-ups get the highest priority; among
    /// equal ones the latest. The registry keeps the instance alive, here and there.
    fn::Promise<void> registerObject(const fn::AutoPtr<ObjectInstance>& instance, int priority);

    /// The instance shared as T (a reference class); waits up to `timeout` for one to be registered, then fails with
    /// `fn::OperationTimedOutException`. Cancelling stops waiting here; the registry forgets the look-up at its time-out.
    template <typename T> fn::Promise<fn::AutoPtr<T>> getInstance(fn::Duration timeout)
    {
        auto call = findInstance(classNameOf<T>(), timeout);
        auto found = fn::Promise<fn::AutoPtr<T>>::create();
        found.onCancel([call] { call.cancel(); });
        call.then(
            [found](fn::Value&& value) {
                try {
                    found.fulfill(value.object<T>());
                } catch (...) {
                    found.reject(std::current_exception());
                }
            },
            [found](std::exception_ptr failure) { found.reject(failure); });
        return found;
    }

    ~Registry() override;

private:
    friend class IdleTermination;
    friend class Worker;

    fn::Promise<fn::Value> findInstance(const fn::String& className, fn::Duration timeout);

    /// Look-ups skip (or again find) the instances of this worker.
    fn::Promise<void> setInstancesHidden(bool hidden);
    bool isInstanceRegistered(const fn::AutoPtr<ObjectInstance>& instance) const;

    std::set<fn::AutoPtr<ObjectInstance>> _registeredInstances;
};

} // namespace ipc
