#include "core/ipc_services/inspector/inspector_reference.h"

namespace core {

InspectorReference::InspectorReference(ipc::ObjectReferenceInitializer& initializer)
    : CallableObjectReference(initializer)
{
}

InspectorReference::~InspectorReference() = default;

fn::Promise<InspectionResult> InspectorReference::inspect(const fn::Value& action, const fn::Value& refererAction)
{
    return callMethod("inspect", fn::Value::map({ { "action", action }, { "refererAction", refererAction } }))
        .then([](fn::Value&& result) { return InspectionResult::deserialize(result); });
}

} // namespace core
