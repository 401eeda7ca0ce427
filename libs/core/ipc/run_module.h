#pragma once
#include "core/ipc/module.h"
#include "core/ipc/module_entry_point.h"
#include <memory>

namespace ipc {

/// Ends a module when the default loop has stopped: ends the module's scope (calls awaited in it are cancelled), closes the module's
/// worker while the module exists (other pending calls are rejected, death signals fire, instances that others held are let go),
/// runs the loop for the tasks that this posts, and destroys the module. Takes a few milliseconds, 200 at most if the dispatcher hangs; waits for no other I/O and no timers.
/// Inside a running loop it runs the loop once more; if other code stops the loop meanwhile, the outer run ends, too.
///
/// Inside a coroutine of the module's own scope: `fn::RuntimeException`, and the module goes on until `endModules()`.
FN_EXPORT void endModule(std::unique_ptr<Module> module);

namespace internal {
/// Keeps a module of the main process until `endModules()`.
FN_EXPORT void keepModule(std::unique_ptr<Module> module);
void setModuleExitCode(int code);
} // namespace internal

/// The body of a module library's entry point: makes the T, runs it, and ends it; in a process of the loader when the loop has
/// stopped, in the main process when `endModules()` is called.
template <typename T>
void runModule(const char* displayName, const char* pipePath, const char* workerTag, std::intptr_t separateProcess,
    std::intptr_t hasParameters = 0)
{
    auto module = std::make_unique<T>(
        ModuleInitData(pipePath, displayName, workerTag, fn::String(), separateProcess != 0, hasParameters != 0));
    module->run();
    if (separateProcess == 0)
        internal::keepModule(std::move(module));
    else
        endModule(std::move(module));
}

/// The exit code of a module's process, once its entry point has returned: 0, or 1 if the module could not run.
FN_EXPORT int moduleExitCode();

/// Calls `endModule()` for all modules of this process, latest first. Main programs call it when the loop has stopped, while the
/// dispatcher still exists; without the call the modules stay until the program exits.
FN_EXPORT void endModules();

} // namespace ipc

/// The entry point of a module library whose module is of class `T` (constructible from a ModuleInitData).
#define IPC_MODULE_ENTRY_POINT(T, displayName) \
    extern "C" FN_EXPORT void moduleEntryPoint( \
        const char* pipePath, const char* workerTag, std::intptr_t separateProcess, std::intptr_t hasParameters) \
    { \
        ::ipc::runModule<T>(displayName, pipePath, workerTag, separateProcess, hasParameters); \
    }
