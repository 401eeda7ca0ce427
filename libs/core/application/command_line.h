#pragma once
#include "core/application/application_options.h"
#include <span>

namespace ipc {

/// The options that every application has: `--help`, `--version`, `--verbose` and `--log PRIORITY`. All else is the application's.
struct CommandLine {
    /// Takes its options out, up to an argument "--". Prints what `--help` and `--version` ask for, and what is wrong; `exitCode` says
    /// then that there is nothing to run.
    static CommandLine parse(std::span<const char* const> arguments, const ApplicationOptions& options);

    std::vector<fn::String> arguments; ///< The others, without the program's name.
    std::optional<int> logPriority;
    bool isVerbose = false;
    std::optional<int> exitCode;
};

} // namespace ipc
