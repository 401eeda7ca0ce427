// The library of one module of the simulated application.
#include "actor.h"
#include "core/ipc/run_module.h"

IPC_MODULE_ENTRY_POINT(simulated::Actor, MODULE_NAME)
