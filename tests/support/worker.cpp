#include "support/worker.h"
#include "base/exceptions.h"

namespace test {

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
