#include "api/application.h"

namespace media {

fn::Value RunOptions::toValue() const
{
    return fn::Value::map({ { "folder", folder }, { "dataFolder", dataFolder }, { "json", json },
        { "killScanner", killScanner }, { "inspect", inspect } });
}

RunOptions RunOptions::fromValue(const fn::Value& value)
{
    return { value.at("folder").string(), value.at("dataFolder").string(), value.at("json").toBool(),
        value.at("killScanner").toBool(), value.at("inspect").toBool() };
}

Application::Application(ipc::ObjectReferenceInitializer& initializer) : CallableObjectReference(initializer) { }
Application::~Application() = default;

fn::Promise<RunOptions> Application::options()
{
    return callMethod("options").then([](fn::Value&& options) { return RunOptions::fromValue(options); });
}

fn::Promise<std::optional<RunOptions>> Application::nextScan()
{
    return callMethod("nextScan").then([](fn::Value&& options) -> std::optional<RunOptions> {
        if (options.isNil()) return std::nullopt;
        return RunOptions::fromValue(options);
    });
}

fn::Promise<void> Application::announce(const fn::String& line)
{
    return callMethod("announce", line).then([](fn::Value&&) {});
}

fn::Promise<void> Application::finish(int exitCode, const fn::String& message)
{
    return callMethod("finish", fn::Value::map({ { "exitCode", exitCode }, { "message", message } }))
        .then([](fn::Value&&) {});
}

} // namespace media
