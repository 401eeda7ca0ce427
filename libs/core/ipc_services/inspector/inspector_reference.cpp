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

fn::Promise<OpenedPage> InspectorReference::open(fn::Value action, fn::Value refererAction)
{
    const fn::AutoPtr self(this);
    for (int redirections = 0; redirections <= mostRedirections; ++redirections) {
        auto result = co_await inspect(action, refererAction);
        if (!result.redirectAction) co_return OpenedPage { std::move(action), std::move(result.items) };
        refererAction = std::exchange(action, std::move(*result.redirectAction));
    }
    throw fn::RuntimeException("The page leads in circles", fn::Exception::StackTrace::None);
}

} // namespace core
