#include "api/text.h"
#include "core/services/app_info.h"
#include "core/services/logging_profile/logging_profiles.h"
#include "foundation/system/path_manager.h"
#include "skyfold/actions.h"
#include "skyfold/inspect.h"
#include "skyfold/options.h"
#include "skyfold/program.h"
#include "skyfold/terminal_errors.h"
#include <cstdio>

namespace {

void startLogging(const media::Options& options)
{
    core::initLoggingProfiles("skyfold");
    if (options.logPriority) core::setConsoleThreshold(*options.logPriority);
}

int scan(media::Options options)
{
    if (options.run.dataFolder.empty())
        options.run.dataFolder =
            fn::PathManager::instance().getPath(fn::PathManager::PreferencesFolder, "catalogue", true);
    if (options.inspect) {
        if (const auto exitCode = media::inspectRunning(); exitCode >= 0) return exitCode;
    }
    const media::TerminalErrors errors;
    return media::Program(std::move(options)).run();
}

} // namespace

int main(int argc, char** argv)
{
    try {
        media::Options options;
        if (const auto exitCode = media::parseOptions(argc, argv, options)) return *exitCode;
        core::AppInfo::initialize(options.app);
        switch (options.action) {
        case media::Options::Action::ArchiveLogs: startLogging(options); return media::archiveLogs();
        case media::Options::Action::SetPassword: startLogging(options); return media::setPassword(options);
        case media::Options::Action::FollowNetwork: startLogging(options); return media::followNetwork();
        case media::Options::Action::ShowFirewall: startLogging(options); return media::showFirewall();
        default: return scan(std::move(options));
        }
    } catch (...) {
        std::fprintf(stderr, "skyfold: %s\n", media::describe(std::current_exception()).c_str());
        return 1;
    }
}
