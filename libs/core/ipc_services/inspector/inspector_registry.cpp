#include "core/ipc_services/inspector/inspector_registry.h"
#include "core/ipc/object/object_dead_exception.h"
#include "core/ipc/worker/worker.h"
#include "core/ipc_services/inspector/inspector_impl.h"
#include "foundation/value_map.h"

namespace core {

InspectorRegistry::InspectorRegistry(ipc::ObjectReferenceInitializer& initializer)
    : CallableObjectReference(initializer)
{
}

InspectorRegistry::~InspectorRegistry() = default;

fn::Promise<unsigned int> InspectorRegistry::registerInspector(
    const fn::String& name, const fn::AutoPtr<Inspector>& inspector)
{
    if (!hasWorker()) {
        return fn::Promise<unsigned int>::rejected(
            std::make_exception_ptr(ipc::ObjectDeadException(fn::Exception::StackTrace::Capture)));
    }
    if (!inspector) {
        return fn::Promise<unsigned int>::rejected(
            std::make_exception_ptr(fn::NullPointerException("There is no inspector to register")));
    }
    const auto published = fn::makeAuto<InspectorImpl>(worker(), inspector);
    return callMethod("registerInspector", fn::Value::map({ { "name", name }, { "reference", published } }))
        .then([](fn::Value&& id) { return id.to<unsigned int>(); });
}

fn::Promise<void> InspectorRegistry::unregisterInspector(unsigned int id)
{
    return callMethod("unregisterInspector", id).then([](fn::Value&&) {});
}

fn::Promise<std::map<fn::String, fn::String>> InspectorRegistry::allInspectors()
{
    return callMethod("allInspectors").then([](fn::Value&& answer) {
        std::map<fn::String, fn::String> names;
        for (const auto& [key, name] : answer.entries()) names.emplace(key.asString(), name.asString());
        return names;
    });
}

fn::Promise<fn::AutoPtr<InspectorReference>> InspectorRegistry::getInspector(const fn::String& key)
{
    // The class must be registered before a reference of it arrives; callers need not care.
    if (hasWorker()) worker().registerObjectReferenceClass<InspectorReference>();
    return callMethod("getInspector", key).then([](fn::Value&& answer) { return answer.object<InspectorReference>(); });
}

} // namespace core
