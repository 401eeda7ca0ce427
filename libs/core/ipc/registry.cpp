#include "core/ipc/registry.h"
#include "base/debug.h"
#include "core/ipc/object/object_instance.h"
#include "core/ipc/worker/detail/worker_object_manager.h"
#include <cstdint>

namespace ipc {

Registry::Registry(ObjectReferenceInitializer& initializer) : CallableObjectReference(initializer) { }
Registry::~Registry() = default;

fn::Promise<void> Registry::registerObject(const fn::AutoPtr<ObjectInstance>& instance, int priority)
{
    try {
        requireConnectedOwner(instance->objectId());
    } catch (...) {
        return fn::Promise<void>::rejected(std::current_exception());
    }
    const auto call =
        callMethod("registerInstance", fn::Value::map({ { "instance", instance }, { "priority", priority } }));
    if (!call.isPending()) return call.then([](fn::Value&&) {}); // The call has failed at once.
    const bool isNew = _registeredInstances.insert(instance).second;
    const auto letGo = [self = fn::AutoPtr(this), instance, isNew](std::exception_ptr failure) {
        if (isNew) self->_registeredInstances.erase(instance);
        std::rethrow_exception(failure);
    };
    return call.then([](fn::Value&&) {}, letGo);
}

fn::Promise<fn::Value> Registry::findInstance(const fn::String& className, fn::Duration timeout)
{
    return callMethod("getInstance",
        fn::Value::map({ { "className", className }, { "timeout", std::int64_t(timeout.totalMilliseconds()) } }));
}

fn::AutoPtr<ObjectReference> Registry::typedReference(const fn::Value& found) const
{
    const auto reference = found.object<ObjectReference>();
    return hasWorker() ? managerOf(worker()).typedReference(reference) : reference;
}

void Registry::throwOtherClass(const fn::String& wanted, const fn::AutoPtr<ObjectReference>& found)
{
    if (!found) throw fn::RuntimeException("The registry has given no object of class " + wanted);
    const auto& object = *found;
    throw fn::RuntimeException("The object found as " + wanted + " is of class "
        + fn::debug::demangleTypeName(typeid(object).name()) + " here");
}

fn::Promise<void> Registry::setInstancesHidden(bool hidden)
{
    return callMethod("setInstancesHidden", hidden).then([](fn::Value&&) {});
}

bool Registry::isInstanceRegistered(const fn::AutoPtr<ObjectInstance>& instance) const
{
    return _registeredInstances.contains(instance);
}

} // namespace ipc
