#pragma once
#include "core/ipc/module.h"
#include "core/ipc/module_entry_point.h"
#include <memory>

namespace ipc {

/// Ends a module whose default loop has stopped: closes its worker while it still exists (calls that are pending are
/// rejected, death signals fire, what others held is let go), runs on the loop what follows from that, and destroys it. Takes a
/// few milliseconds, 200 at most where the dispatcher hangs; waits for no other I/O and no timers.
/// Also inside a running loop, which it runs once more; a stop that comes meanwhile holds for the run outside.
FN_EXPORT void endModule(std::unique_ptr<Module> module);

namespace internal {
/// Keeps a module of the main process until that process's loop has ended.
FN_EXPORT void keepModule(std::unique_ptr<Module> module);
} // namespace internal

/// The body of a module library's entry point: builds the T, lets it run, and ends it: in a loader process when its loop
/// has stopped, in the main process when `endModules()` is called.
template <typename T>
void runModule(const char* displayName, const char* pipePath, const char* workerTag, std::intptr_t separateProcess)
{
    auto module =
        std::make_unique<T>(ModuleInitData(pipePath, displayName, workerTag, fn::String(), separateProcess != 0));
    module->run();
    if (separateProcess == 0)
        internal::keepModule(std::move(module));
    else
        endModule(std::move(module));
}

/// `endModule()` for all modules of this process, latest first. For main programs, after the loop has stopped and while the
/// dispatcher is still there; a main program that forgets it keeps them until it exits.
FN_EXPORT void endModules();

} // namespace ipc

/// The entry point of a module library whose module is of class `T` (constructible from a ModuleInitData).
#define IPC_MODULE_ENTRY_POINT(T, displayName) \
    extern "C" FN_EXPORT void moduleEntryPoint( \
        const char* pipePath, const char* workerTag, std::intptr_t separateProcess, std::intptr_t) \
    { \
        ::ipc::runModule<T>(displayName, pipePath, workerTag, separateProcess); \
    }
