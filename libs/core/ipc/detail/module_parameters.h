#pragma once
#include "core/ipc/interface/interface.h"
#include "core/ipc/interface/method.h"

namespace ipc {

/// Where modules fetch their parameters: an object in the hub's own worker, which the module manager offers once a module has some.
struct ModuleParameters : Interface<ModuleParameters> {
    static constexpr const char* className = "ipc.ModuleParameters";
    static constexpr auto timeLimit = fn::Duration::seconds(20);

    /// Those of the module whose latest launch has this tag; only its own worker is answered.
    Method<fn::Value(fn::String workerTag), Repeatable> get;
    IPC_MEMBERS(get)
};

} // namespace ipc
