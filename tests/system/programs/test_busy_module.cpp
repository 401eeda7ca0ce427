// A module that never returns to its loop once it is connected.
#include "core/ipc/run_module.h"
#include <cstdio>
#include <unistd.h>

namespace {

struct BusyModule final : ipc::Module {
    using Module::Module;
    void onConnected() override
    {
        std::puts("busy");
        std::fflush(stdout);
        for (;;) ::pause();
    }
};

} // namespace

IPC_MODULE_ENTRY_POINT(BusyModule, "Busy")
