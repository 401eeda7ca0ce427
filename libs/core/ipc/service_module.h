#pragma once
#include "core/ipc/registry.h"
#include "core/ipc/run_module.h"

namespace ipc {

/// A module that offers one object of each of these services, from the moment at which it is connected:
///
///     IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<GreeterService>, "Greeter")
template <typename... Services> class ServiceModule : public Module {
public:
    using Module::Module;

    void onConnected() override { (worker().registry()->registerObject(fn::makeAuto<Services>(worker()), 0), ...); }
};

} // namespace ipc
