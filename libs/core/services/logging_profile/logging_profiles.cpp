#include "core/services/logging_profile/logging_profiles.h"
#include "foundation/logging/category_manager.h"
#include "foundation/logging/log_console_target.h"
#include "foundation/message_bus.h"
#include "foundation/system/environment.h"
#include "foundation/system/path_manager.h"
#include "foundation/system/process_local.h"
#include "foundation/unhandled_exception.h"
#include <mutex>

namespace core {
namespace {

constexpr auto busNamespace = "com.tidewerk.logging-profile";
constexpr auto consoleVariable =
    "CORE_CONSOLE_LOG"; // By the environment, since that reaches a process before its first message.
constexpr auto allowVerboseMessage = "com.tidewerk.logging-profile.allow-verbose-logging";

/// Shows errors that happen before there are profiles.
class FallbackSink final : public fn::logging::Sink {
public:
    int threshold(const fn::logging::Category&) const override { return fn::logging::Warning; }

    void logMessage(const fn::logging::Category&, const fn::logging::Message& message) override
    {
        if (message.priority != fn::logging::Error && message.priority != fn::logging::Warning) return;
        _target->write(message.text + "\n");
    }

private:
    ~FallbackSink() override = default;

    const fn::AutoPtr<fn::LogTarget> _target = fn::makeAuto<fn::LogConsoleTarget>();
};

class FallbackScope {
public:
    FallbackScope() : _sink(fn::makeAuto<FallbackSink>()) { fn::logging::CategoryManager::instance().addSink(_sink); }
    FallbackScope(const FallbackScope&) = delete;
    FallbackScope& operator=(const FallbackScope&) = delete;
    ~FallbackScope() { fn::logging::CategoryManager::instance().removeSink(_sink); }

private:
    const fn::AutoPtr<fn::logging::Sink> _sink;
};

/// A body that is no boolean changes nothing: any process may post one.
void adoptVerboseLogging(LoggingProfileSink& sink, const fn::Value& body)
{
    try {
        sink.setAllowVerboseLogging(body.toBool());
    } catch (...) {
        fn::unhandledException();
    }
}

void followVerboseLogging(const fn::AutoPtr<LoggingProfileSink>& sink)
{
    auto& bus = fn::MessageBus::instance();
    if (const auto body = bus.getStickyMessage(allowVerboseMessage)) adoptVerboseLogging(*sink, *body);
    auto subscription = bus.onMessage(busNamespace).connect([sink](const fn::String& name, const fn::Value& body) {
        if (name == allowVerboseMessage) adoptVerboseLogging(*sink, body);
    });
    subscription.detach();
}

void applyConsoleThreshold(LoggingProfileSink& sink, const fn::String& priority)
{
    for (const auto& profile : sink.profiles()) {
        if (!profile->fileName().toLowerCase().startsWith("console")) continue; // There is at most one for the console.
        profile->setEnabled(true);
        profile->setRootThreshold(static_cast<LoggingProfile::Priority>(priority.toInt(fn::logging::Warning)));
    }
}

fn::AutoPtr<LoggingProfileSink> start(const fn::String& baseName)
{
    auto sink = fn::makeAuto<LoggingProfileSink>(baseName);
    {
        const FallbackScope fallback;
        auto& paths = fn::PathManager::instance();
        sink->reload(paths.getPath(fn::PathManager::ResourceFolder, "logging_profiles", false));
    }
    if (const auto priority = fn::Environment::get(consoleVariable)) applyConsoleThreshold(*sink, *priority);
    fn::logging::CategoryManager::instance().addSink(sink);
    followVerboseLogging(sink);
    return sink;
}

} // namespace

fn::AutoPtr<LoggingProfileSink> initLoggingProfiles(const fn::String& baseName)
{
    struct Started {
        std::once_flag once;
        fn::AutoPtr<LoggingProfileSink> sink;
    };
    static fn::ProcessLocal<Started> started;
    auto& [once, sink] = started.get();
    std::call_once(once, [&] { sink = start(baseName); });
    return sink;
}

void setConsoleThreshold(int priority)
{
    const auto text = fn::String::number(priority);
    fn::Environment::set(consoleVariable, text);
    applyConsoleThreshold(*initLoggingProfiles({}), text);
    fn::logging::CategoryManager::instance().reload();
}

bool isVerboseLoggingEnabled() { return initLoggingProfiles({})->allowVerboseLogging(); }

void setEnableVerboseLogging(bool enable) { fn::MessageBus::instance().postStickyMessage(allowVerboseMessage, enable); }

} // namespace core
