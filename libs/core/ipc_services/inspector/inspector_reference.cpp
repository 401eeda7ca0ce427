#include "core/ipc_services/inspector/inspector_reference.h"
#include "base/exceptions.h"

namespace core {
namespace {

constexpr int mostRedirections = 10;

} // namespace

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

fn::Promise<OpenedPage> InspectorReference::open(const fn::Value& action, const fn::Value& refererAction)
{
    return follow(action, refererAction, mostRedirections);
}

fn::Promise<OpenedPage> InspectorReference::follow(
    const fn::Value& action, const fn::Value& refererAction, int redirectionsLeft)
{
    return inspect(action, refererAction).then([=, self = fn::AutoPtr(this)](InspectionResult&& result) {
        if (!result.redirectAction) return fn::Promise<OpenedPage>::fulfilled({ action, std::move(result.items) });
        if (redirectionsLeft == 0)
            throw fn::RuntimeException("The page leads in circles", fn::Exception::StackTrace::None);
        return self->follow(*result.redirectAction, action, redirectionsLeft - 1);
    });
}

} // namespace core
