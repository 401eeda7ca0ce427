#include "api/log_output.h"
#include "core/logging_profile/logging_profiles.h"
#include "foundation/logging/category_manager.h"
#include "foundation/system/environment.h"

namespace media {
namespace {

// By the environment, since that reaches a process before its first message.
constexpr auto variable = "SKYFOLD_LOG";

} // namespace

void startLogging(const fn::String& name, std::optional<int> priority)
{
    if (priority) fn::Environment::set(variable, fn::String::number(*priority));
    const auto sink = core::initLoggingProfiles(name);
    const auto chosen = fn::Environment::get(variable);
    if (!chosen) return;
    for (const auto& profile : sink->profiles()) {
        if (!profile->fileName().toLower().startsWith("console")) continue;
        profile->setEnabled(true);
        profile->setRootThreshold(static_cast<core::LoggingProfile::Priority>(chosen->toInt(fn::logging::Warning)));
    }
    fn::logging::CategoryManager::instance().reload();
}

bool isVerbose() { return core::initLoggingProfiles({})->allowVerboseLogging(); }

} // namespace media
