#include "skyfold/options.h"
#include <CLI/CLI.hpp>
#include <filesystem>

namespace media {
namespace {

constexpr int wrongUsage = 2;

constexpr auto introduction = R"(Catalogues a folder of files and tells what is in it. Three modules share the
work: the library keeps the catalogue, the scanner reads the files, the console
talks to you. What an earlier run has read is read again only where size or
time of a file have changed.)";

constexpr auto notes = R"(While one Skyfold runs, another one hands it its folder and its data folder and
ends; the first one catalogues that folder, too, when it is done with its own.

The JSON object, one for each folder:
  files              regular files found
  bytes              their sizes in sum
  distinct           different contents among the files that could be read
  duplicates         files that could be read, less distinct
  hashed             files read by this run, not known from an earlier one
  unreadable         files found that could not be read; in files and bytes, too
  unreadableFolders  folders that could not be read; what is in them is unknown
  relaunches         modules that ended unexpectedly and came back
  seconds            time taken
Files of 320 KiB and more are compared by size and samples.

The log files lie in $XDG_STATE_HOME/skyfold/logs (~/.local/state by default).

Exit codes: 0 done or handed over, 1 failed, 2 wrong usage, 128 + N ended by signal N.)";

} // namespace

std::optional<int> parseOptions(int argc, char** argv, Options& options)
{
    CLI::App app(introduction, "skyfold");
    app.footer(notes);
    std::string folder = "/usr/share";
    std::string dataFolder;
    const auto choose = [&](Options::Action action) { return [&options, action] { options.action = action; }; };
    std::vector<std::string> password;
    const auto* named = app.add_option("FOLDER", folder, "What to catalogue; links in it are not followed")
                            ->check(CLI::ExistingDirectory)
                            ->option_text("(default: " + folder + ")");
    app.add_flag("--json", options.run.json, "Print one JSON object on standard output instead of text");
    app.add_flag("--kill-scanner", options.run.killScanner, "Kill the scanner half way, to see the scan survive it");
    app.add_option("--data", dataFolder, "Where the catalogue lies (default: a folder of the user's)")
        ->option_text("DIR");
    app.add_flag_callback(
        "--lumen-hall", [&] { options.app = core::AppInfo::App::Lumenhall; }, "Run as Lumen Hall instead of Skyfold");
    app.add_option("--log", options.logPriority, "Log up to this priority to standard error, 1 (errors) to 7 (traces)")
        ->option_text("PRIORITY")
        ->check(CLI::Range(0, 7));
    app.add_flag("--verbose", options.verbose,
        "Switch verbose logging on or off in all processes that run; with none, on in a new run");
    app.add_flag_callback("--archive-logs", choose(Options::Action::ArchiveLogs),
        "Pack the logs into a zip file, print its path and end");
    app.add_flag("--inspect", options.inspect,
        "Browse what goes on inside a Skyfold that runs, or, with none, inside a new run");
    app.add_flag("--inspect-web", options.inspectWeb,
        "Show what goes on inside as web pages on this machine; runs until interrupted");
    app.add_flag_callback("--network", choose(Options::Action::FollowNetwork),
        "Print a text that stands for this network, and each new one until interrupted");
    app.add_flag_callback("--firewall", choose(Options::Action::ShowFirewall),
        "Show whether the firewall admits Skyfold; on a terminal, offer to let it");
    app.add_option("--set-password", password, "Store a secret, asked for on the terminal or read from standard input")
        ->option_text("GROUP KEY")
        ->expected(2);
    try {
        app.parse(argc, argv);
        // A folder must have only one name in the catalogue.
        options.run.folder = std::filesystem::canonical(folder).string();
        if (!dataFolder.empty()) options.run.dataFolder = std::filesystem::absolute(dataFolder).string();
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : wrongUsage;
    }
    options.run.quiet = options.inspect;
    if (!password.empty()) {
        options.action = Options::Action::SetPassword;
        options.passwordGroup = password[0];
        options.passwordKey = password[1];
    }
    if (options.action == Options::Action::Scan && options.verbose && named->count() == 0)
        options.action = Options::Action::FlipVerbose;
    return std::nullopt;
}

} // namespace media
