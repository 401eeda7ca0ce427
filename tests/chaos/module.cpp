// The library of one module of the application that real signals hit.
#include "actor.h"
#include "core/ipc/run_module.h"
#include "journal.h"
#include <cerrno>

extern "C" FN_EXPORT void moduleEntryPoint(
    const char* pipePath, const char* workerTag, std::intptr_t separateProcess, std::intptr_t)
{
    [[maybe_unused]] static auto* const journal =
        new chaos::Journal(program_invocation_short_name); // The loader sets it.
    ipc::runModule<simulated::Actor>("Module", pipePath, workerTag, separateProcess);
}
