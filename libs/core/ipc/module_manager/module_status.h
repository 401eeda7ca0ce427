#pragma once
#include "base/string.h"

namespace ipc {

/// What a ModuleManager knows of one module, for inspectors.
struct ModuleStatus {
    /// What became of the latest launch.
    ///
    ///     any                         -> Launching    a launch
    ///     Launching                   -> Overdue      its worker has not connected within 30 s
    ///     Launching, Overdue          -> Running      its worker connects
    ///     Running                     -> Ended        its worker disconnects
    ///     Launching, Overdue, Running -> Ended        its process exits
    ///     Launching                   -> Ended        the launch throws
    enum class State {
        NotLaunched,
        Launching, ///< The manager waits for the module's worker.
        Overdue, ///< The worker did not connect in time; the module is relaunched in a moment, or given up.
        Running, ///< The worker is connected, or was so when the dispatcher was destroyed.
        Ended, ///< The module is relaunched in a moment, or given up.
    };

    fn::String name;
    fn::String workerTag; ///< The tag of the latest launch; empty before the first.
    State state = State::NotLaunched;
    bool isSeparateProcess = false;
    int launches = 0; ///< All launches.
    int timeouts = 0; ///< All launches whose worker did not connect in time.
};

} // namespace ipc
