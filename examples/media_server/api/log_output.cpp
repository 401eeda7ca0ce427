#include "api/log_output.h"
#include "core/services/app_info.h"
#include "core/services/logging_profile/logging_profiles.h"
#include "foundation/system/environment.h"
#include "foundation/system/path_manager.h"

namespace media {
namespace {

// By the environment, since that reaches a process before its first message.
constexpr auto variable = "SKYFOLD_LOG";

} // namespace

void chooseFolders()
{
    fn::PathManager::instance().setApplicationName(core::AppInfo::instance().applicationShortName().toLower());
}

void startLogging(const fn::String& name, std::optional<int> priority)
{
    if (priority) fn::Environment::set(variable, fn::String::number(*priority));
    core::initLoggingProfiles(name);
    if (const auto chosen = fn::Environment::get(variable))
        core::setConsoleThreshold(chosen->toInt(fn::logging::Warning));
}

bool isVerbose() { return core::initLoggingProfiles({})->allowVerboseLogging(); }

} // namespace media
