#include "support/worker.h"
#include "base/exceptions.h"

namespace test {

ServiceReference::ServiceReference(ipc::ObjectReferenceInitializer& initializer) : CallableObjectReference(initializer)
{
}

void ServiceReference::onEvent(const fn::String& name, const fn::Value& argument)
{
    events.emplace_back(name, argument);
}

fn::AutoPtr<ipc::ObjectReference> Service::createReference(ipc::ObjectReferenceInitializer& initializer)
{
    return fn::makeAuto<ServiceReference>(initializer);
}

void Service::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    calls.push_back({ context, name, argument });
    if (answer)
        answer(calls.back());
    else if (name == "echo")
        sendResult(context, argument);
}

std::string Outcome::error() const
{
    if (!failure()) return {};
    try {
        std::rethrow_exception(failure());
    } catch (const fn::Exception& exception) {
        return fmt::format("{}: {}", exception.className().view(), exception.message().view());
    } catch (const std::exception& exception) {
        return exception.what();
    }
}

} // namespace test
