#pragma once
#include "core/ipc/interface/codec_containers.h"
#include "core/ipc/interface/method.h"

namespace media {

/// One scan that the user has asked for, and how the console shows it.
struct RunOptions {
    fn::String folder; ///< The folder to scan: absolute, without links.
    fn::String dataFolder; ///< The folder of the catalogue.
    bool json = false; ///< Whether the result is one JSON object instead of text.
    bool killScanner = false; ///< Whether to kill the scanner, to show that a scan survives that.
    bool quiet = false; ///< Whether neither progress nor result is shown, since something else is.
};
FN_FIELDS(RunOptions, dataFolder, folder, json, killScanner, quiet)

/// How the program ends.
struct Ending {
    int exitCode = 0;
    fn::String message; ///< Printed on standard error unless it is empty.
};
FN_FIELDS(Ending, exitCode, message)

/// The main program, for its modules.
struct Application : ipc::Interface<Application> {
    ipc::Method<RunOptions()> options; ///< The first scan.

    /// The next scan that another start of the program has handed over, the earliest first. A program that stays answers when there
    /// is one. Another program answers with none when it takes no more scans, and the console should finish.
    ipc::Method<std::optional<RunOptions>()> nextScan;

    ipc::Method<void(Ending)> finish; ///< Ends all modules and the program.

    IPC_MEMBERS(options, nextScan, finish)
};

} // namespace media
