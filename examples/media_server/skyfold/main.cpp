#include "api/log_output.h"
#include "api/text.h"
#include "core/app_info.h"
#include "foundation/system/path_manager.h"
#include "skyfold/options.h"
#include "skyfold/program.h"
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

/// A standard stream that the caller has closed would be the number of our next file or socket.
void fillStandardStreams()
{
    for (const int stream : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO }) {
        if (::fcntl(stream, F_GETFD) < 0) static_cast<void>(::open("/dev/null", O_RDWR));
    }
}

/// Each application of the family has a catalogue of its own.
fn::String defaultDataFolder()
{
    const auto name = core::AppInfo::instance().applicationShortName().toLower();
    return fn::PathManager::instance().getPath(fn::PathManager::PreferencesFolder, "catalogue-" + name, true);
}

} // namespace

int main(int argc, char** argv)
{
    fillStandardStreams();
    try {
        media::Options options;
        if (const auto exitCode = media::parseOptions(argc, argv, options)) return *exitCode;
        core::AppInfo::initialize(options.app);
        if (options.logPriority) media::chooseLogOutput(*options.logPriority);
        if (options.run.dataFolder.empty()) options.run.dataFolder = defaultDataFolder();
        return media::Program(std::move(options)).run();
    } catch (...) {
        std::fprintf(stderr, "skyfold: %s\n", media::describe(std::current_exception()).c_str());
        return 1;
    }
}
