#include "skyfold/application_service.h"
#include "foundation/exceptions.h"

namespace media {

ApplicationService::ApplicationService(ipc::Worker& worker, Owner& owner)
    : CallableObjectInstance(worker),
      _owner(owner)
{
}

ApplicationService::~ApplicationService() = default;

fn::AutoPtr<ipc::ObjectReference> ApplicationService::createReference(ipc::ObjectReferenceInitializer& initializer)
{
    return fn::makeAuto<Application>(initializer);
}

void ApplicationService::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    try {
        if (name == "options") {
            sendResult(context, _owner.options().toValue());
        } else if (name == "nextScan") {
            const auto next = _owner.takeNextScan();
            sendResult(context, next ? next->toValue() : fn::Value());
        } else if (name == "finish") {
            _owner.finish(argument.at("exitCode").to<int>(), argument.at("message").string());
            sendResult(context, {});
        } else {
            throw fn::RuntimeException("The application has no method " + name);
        }
    } catch (...) {
        sendError(context, std::current_exception());
    }
}

} // namespace media
