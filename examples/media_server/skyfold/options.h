#pragma once
#include "api/application.h"
#include "core/services/app_info.h"
#include <optional>

namespace media {

/// The command line.
struct Options {
    enum class Action { Scan, FlipVerbose, ArchiveLogs, SetPassword, FollowNetwork, ShowFirewall };

    Action action = Action::Scan; ///< FlipVerbose if that is the only request.
    bool verbose = false; ///< Flips verbose logging, or turns it on at the start.
    RunOptions run; ///< `dataFolder` is empty if none was given.
    core::AppInfo::App app = core::AppInfo::App::Skyfold;
    bool isSingle = true; ///< Whether a program that runs already is handed this one's folder.
    bool inspect = false; ///< Browse the inspectors on the terminal, until the user quits.
    bool inspectWeb = false; ///< Serve the inspectors to a browser; the program stays until a signal ends it.
    std::optional<int> logPriority;
    std::string passwordGroup;
    std::string passwordKey;
};

/// The options; or the exit code if there is nothing to run, since help was asked for, or the command line is wrong. The help or
/// the error has been printed then.
std::optional<int> parseOptions(int argc, char** argv, Options& options);

} // namespace media
