#include "skyfold/application_service.h"
#include "foundation/exceptions.h"

namespace media {

ApplicationService::ApplicationService(ipc::Worker& worker, RunOptions options, Finish finish)
    : CallableObjectInstance(worker),
      _options(std::move(options)),
      _finish(std::move(finish))
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
            sendResult(context, _options.toValue());
        } else if (name == "finish") {
            _finish(argument.at("exitCode").to<int>(), argument.at("message").string());
            sendResult(context, {});
        } else {
            throw fn::RuntimeException("The application has no method " + name);
        }
    } catch (...) {
        sendError(context, std::current_exception());
    }
}

} // namespace media
