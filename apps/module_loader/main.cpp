// The process of one module: skyfold.module_loader LIBRARY PIPE_PATH WORKER_TAG [parameters]. Started by the module manager.
#include "core/ipc/module_entry_point.h"
#include "core/ipc/run_module.h"
#include "core/services/app_info.h"
#include "foundation/run_loop.h"
#include "foundation/system/path_manager.h"
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

constexpr const char* usage = "Usage: skyfold.module_loader LIBRARY PIPE_PATH WORKER_TAG [parameters]\n"
                              "Runs the module in LIBRARY as a process of its own. The application's module manager\n"
                              "starts it; PIPE_PATH is its dispatcher's pipe, WORKER_TAG names this launch. With\n"
                              "\"parameters\" the module fetches its parameters from there.\n";

// A module that does not return from its loop within this time after SIGTERM is ended.
constexpr auto graceTime = std::chrono::seconds(2);

int requests = -1; // An eventfd that counts the SIGTERMs received.

/// Lets SIGTERM stop the module's loop, and end the process if the module does not return from its loop. A thread waits for the
/// signal, since the loop of a module that hangs would never see it. (The signal is not blocked: processes that the module
/// starts would inherit that.)
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
            if (errno != EINTR) return; // The module has closed the eventfd.
        }
        loop.stop();
        std::this_thread::sleep_for(graceTime);
        std::_Exit(1);
    }).detach();
}

/// Lets the parent's death end the module, since no other process would.
void followParent(pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) std::_Exit(1); // The parent died before the request.
}

int runModule(const char* library, const char* pipePath, const char* workerTag, bool hasParameters)
{
    static auto& name = *new std::string(std::filesystem::path(library).stem());
    program_invocation_short_name = name.data(); // Reports call this process so.
    core::AppInfo::adoptEnvironment();
    fn::PathManager::instance().useRootOfModule(library);
    fn::SharedLibrary module;
    ipc::loadModule(module, library)(pipePath, workerTag, 1, hasParameters ? 1 : 0);
    return ipc::moduleExitCode();
}

} // namespace

int main(int argc, char** argv)
{
    // A terminal sends them to the whole process group; the main program alone reacts to them. (Its death ends this process, too.)
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);
    const auto parent = getppid();
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(usage, stdout);
        return 0;
    }
    const bool hasParameters = argc == 5 && std::strcmp(argv[4], ipc::parametersArgument) == 0;
    if (argc != 4 && !hasParameters) {
        std::fputs(usage, stderr);
        return 2;
    }
    try {
        endModuleOnRequest();
        followParent(parent);
        return runModule(argv[1], argv[2], argv[3], hasParameters);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s: cannot run module %s: %s\n", argv[0], argv[1], exception.what());
        return 1;
    }
}
