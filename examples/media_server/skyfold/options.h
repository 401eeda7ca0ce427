#pragma once
#include "api/application.h"
#include "core/services/app_info.h"
#include <optional>

namespace media {

/// The command line.
struct Options {
    enum class Action { Scan, FlipVerbose, ArchiveLogs, SetPassword, FollowNetwork, ShowFirewall };

    Action action = Action::Scan; ///< FlipVerbose: nothing else was asked for.
    bool verbose = false; ///< Verbose logging is to be flipped, or on from the start.
    RunOptions run; ///< `dataFolder` is empty where none was named.
    core::AppInfo::App app = core::AppInfo::App::Skyfold;
    bool inspect = false; ///< Browse the inspectors on the terminal, until the user has had enough.
    bool inspectWeb = false; ///< Serve the inspectors to a browser; the program stays until a signal ends it.
    std::optional<int> logPriority;
    std::string passwordGroup;
    std::string passwordKey;
};

/// The options, or the exit code where nothing is to be run: help was asked for, or the command line is wrong. That has
/// been printed then.
std::optional<int> parseOptions(int argc, char** argv, Options& options);

} // namespace media
