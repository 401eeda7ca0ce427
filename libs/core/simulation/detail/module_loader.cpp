#include "core/simulation/detail/module_loader.h"
#include "core/ipc/module_entry_point.h"
#include "core/ipc/run_module.h"
#include "core/simulation/process.h"
#include "foundation/run_loop.h"
#include "foundation/uv/signal_watcher.h"
#include <csignal>

namespace core::simulation {

int runModuleLoader(const std::vector<fn::String>& arguments)
{
    const bool hasParameters = arguments.size() == 5 && arguments[4] == ipc::parametersArgument;
    if (arguments.size() != 4 && !hasParameters) return 2;
    auto& loop = fn::RunLoop::defaultLoop();
    const fn::uv::SignalWatcher interrupt(loop.uvLoop(), SIGINT, [] {}); // The main program alone reacts to SIGINT.
    const fn::uv::SignalWatcher end(loop.uvLoop(), SIGTERM, [&] { loop.stop(); });
    Process::current()->setParentDeathSignal(SIGTERM);
    fn::SharedLibrary module;
    const auto entryPoint = ipc::loadModule(module, arguments[1]);
    entryPoint(arguments[2].c_str(), arguments[3].c_str(), 1, hasParameters ? 1 : 0);
    return ipc::moduleExitCode();
}

} // namespace core::simulation
