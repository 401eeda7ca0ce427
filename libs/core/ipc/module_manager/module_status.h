#pragma once
#include "base/string.h"

namespace ipc {

/// What a ModuleManager knows of one module, for inspectors.
struct ModuleStatus {
    enum class State {
        NotLaunched,
        Launching, ///< Its worker is awaited.
        Running, ///< Its worker is connected.
        Ended, ///< Relaunched in a moment, or given up.
    };

    fn::String name;
    fn::String workerTag; ///< Of the latest launch.
    State state = State::NotLaunched;
    bool isSeparateProcess = false;
    int launches = 0; ///< Ever.
    int timeouts = 0; ///< Launches ever whose worker did not connect in time.
};

} // namespace ipc
