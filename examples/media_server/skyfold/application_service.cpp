#include "skyfold/application_service.h"

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
    if (name == "options") {
        sendResult(context, _owner.options().toValue());
    } else if (name == "nextScan") {
        _owner.nextScan([self = fn::AutoPtr(this), context](const std::optional<RunOptions>& options) {
            self->sendResult(context, options ? options->toValue() : fn::Value());
        });
    } else if (name == "finish") {
        _owner.finish(argument.at("exitCode").to<int>(), argument.at("message").string());
        sendResult(context);
    } else {
        sendUnknownMethod(context, name);
    }
}

} // namespace media
