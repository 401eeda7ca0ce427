#include "core/simulation/detail/module_loader.h"
#include "core/ipc/module_entry_point.h"
#include "core/simulation/process.h"
#include "foundation/run_loop.h"
#include "foundation/system/shared_library.h"
#include "foundation/uv/signal_watcher.h"
#include <csignal>

namespace core::simulation {

int runModuleLoader(const std::vector<fn::String>& arguments)
{
    if (arguments.size() != 4) return 2;
    auto& loop = fn::RunLoop::defaultLoop();
    const fn::uv::SignalWatcher interrupt(loop.uvLoop(), SIGINT, [] {}); // The main program alone reacts to SIGINT.
    const fn::uv::SignalWatcher end(loop.uvLoop(), SIGTERM, [&] { loop.stop(); });
    Process::current()->setParentDeathSignal(SIGTERM);
    fn::SharedLibrary module;
    module.load(arguments[1]);
    const auto entryPoint = reinterpret_cast<ipc::ModuleEntryPoint>(module.symbol(ipc::moduleEntryPointName));
    entryPoint(arguments[2].c_str(), arguments[3].c_str(), 1, 0);
    return 0;
}

} // namespace core::simulation
