#pragma once
// What the code of docs/modules.md finds.
#include "core/ipc/module.h"
#include "core/ipc/module_manager/module_manager.h"
#include "core/ipc/run_module.h"

struct Watch;
void watch(const Watch& what);

struct WatcherModule : ipc::Module {
    using Module::Module;
    void onConnected() override;
};

extern ipc::ModuleManager& manager;
