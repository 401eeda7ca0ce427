// The library of one module of the application that real signals hit.
#include "actor.h"
#include "core/ipc/run_module.h"
#include "journal.h"
#include <cerrno>

extern "C" FN_EXPORT void moduleEntryPoint(
    const char* pipePath, const char* workerTag, std::intptr_t separateProcess, std::intptr_t)
{
    static auto& witness =
        *new chaos::JournalWitness(program_invocation_short_name); // Named for the library by the loader.
    (void)witness;
    ipc::runModule<simulated::Actor>("Module", pipePath, workerTag, separateProcess);
}
