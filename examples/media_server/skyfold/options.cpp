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

constexpr auto notes = R"(The JSON object:
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

Exit codes: 0 done, 1 failed, 2 wrong usage, 128 + N ended by signal N.)";

} // namespace

std::optional<int> parseOptions(int argc, char** argv, Options& options)
{
    CLI::App app(introduction, "skyfold");
    app.footer(notes);
    std::string folder = "/usr/share";
    std::string dataFolder;
    bool isLumenHall = false;
    app.add_option("FOLDER", folder, "What to catalogue; links in it are not followed")
        ->check(CLI::ExistingDirectory)
        ->option_text("(default: " + folder + ")");
    app.add_flag("--json", options.run.json, "Print one JSON object on standard output instead of text");
    app.add_flag("--kill-scanner", options.run.killScanner, "Kill the scanner half way, to see the scan survive it");
    app.add_option("--data", dataFolder, "Where the catalogue lies (default: a folder of the user's)")
        ->option_text("DIR");
    app.add_flag("--lumen-hall", isLumenHall, "Run as Lumen Hall instead of Skyfold");
    app.add_option("--log", options.logPriority, "Log up to this priority to standard error, 1 (errors) to 7 (traces)")
        ->option_text("PRIORITY")
        ->check(CLI::Range(0, 7));
    try {
        app.parse(argc, argv);
        // One folder has one name in the catalogue.
        options.run.folder = std::filesystem::canonical(folder).string();
        if (!dataFolder.empty()) options.run.dataFolder = std::filesystem::absolute(dataFolder).string();
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : wrongUsage;
    }
    if (isLumenHall) options.app = core::AppInfo::App::Lumenhall;
    return std::nullopt;
}

} // namespace media
