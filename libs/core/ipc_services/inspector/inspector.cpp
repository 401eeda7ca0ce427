#include "core/ipc_services/inspector/inspector.h"
#include "core/ipc_services/inspector/inspector_impl.h"

namespace core {

Inspector::Inspector() = default;
Inspector::~Inspector() = default;

InspectionResult Inspector::inspect(const fn::Value&, const fn::Value&) { return {}; }

void Inspector::inspect(const fn::Value& action, const fn::Value& refererAction, const CallContext& context)
{
    sendResult(context, inspect(action, refererAction));
}

void Inspector::sendResult(const CallContext& context, const InspectionResult& result)
{
    if (const auto published = _published.lock()) published->sendResult(context, result.serialize());
}

} // namespace core
