// The process of one module: skyfold.module_loader LIBRARY PIPE_PATH WORKER_TAG. Started by the module manager.
#include "core/ipc/module_entry_point.h"
#include "core/services/app_info.h"
#include "foundation/run_loop.h"
#include "foundation/system/path_manager.h"
#include "foundation/system/shared_library.h"
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace {

constexpr const char* usage = "Usage: skyfold.module_loader LIBRARY PIPE_PATH WORKER_TAG\n"
                              "Runs the module in LIBRARY as a process of its own. The application's module manager\n"
                              "starts it; PIPE_PATH is its dispatcher's pipe, WORKER_TAG names this launch.\n";

// A module that does not return from its loop in this time after it was asked to end is ended.
constexpr auto graceTime = std::chrono::seconds(2);

int requests = -1; // An eventfd that counts the SIGTERMs received.

/// Has SIGTERM end the module cleanly, and without its help if it does not return from its loop. On a thread of its own:
/// a module that hangs would never hear of it on its loop. (Blocking the signal and waiting for it would be inherited by
/// what the module starts.)
void endModuleOnRequest()
{
    requests = eventfd(0, EFD_CLOEXEC);
    if (requests < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    struct sigaction action = {};
    action.sa_flags = SA_RESTART;
    action.sa_handler = [](int) {
        const auto error = errno;
        eventfd_write(requests, 1);
        errno = error;
    };
    sigaction(SIGTERM, &action, nullptr);
    auto& loop = fn::RunLoop::defaultLoop();
    std::thread([&loop] {
        eventfd_t count = 0;
        while (eventfd_read(requests, &count) != 0) {
            if (errno != EINTR) return; // Closed by the module: no reason to spin.
        }
        loop.stop();
        std::this_thread::sleep_for(graceTime);
        std::_Exit(1);
    }).detach();
}

/// The parent's death ends the module: nobody else would.
void followParent(pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) std::_Exit(1); // It died before the request.
}

int runModule(const char* library, const char* pipePath, const char* workerTag)
{
    // Ctrl-C reaches the whole process group; the main program alone decides what it means.
    std::signal(SIGINT, SIG_IGN);
    static auto& name = *new std::string(std::filesystem::path(library).stem());
    program_invocation_short_name = name.data(); // By which reports name this process.
    if (const auto* app = core::AppInfo::find()) fn::PathManager::instance().setApplicationName(app->folderName());
    fn::SharedLibrary module;
    module.load(library);
    const auto entryPoint = reinterpret_cast<ipc::ModuleEntryPoint>(module.symbol(ipc::moduleEntryPointName));
    entryPoint(pipePath, workerTag, 1, 0);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const auto parent = getppid();
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(usage, stdout);
        return 0;
    }
    if (argc != 4) {
        std::fputs(usage, stderr);
        return 2;
    }
    try {
        endModuleOnRequest();
        followParent(parent);
        return runModule(argv[1], argv[2], argv[3]);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s: cannot run module %s: %s\n", argv[0], argv[1], exception.what());
        return 1;
    }
}
