#pragma once
#include "base/string.h"

namespace ipc {

/// What a ModuleManager knows of one module, for inspectors.
struct ModuleStatus {
    /// Of the latest launch.
    ///
    ///     any                         -> Launching    a launch
    ///     Launching                   -> Overdue      30 s
    ///     Launching, Overdue          -> Running      its worker connects
    ///     Running                     -> Ended        its worker disconnects
    ///     Launching, Overdue, Running -> Ended        its process exits
    ///     Launching                   -> Ended        the launch throws
    enum class State {
        NotLaunched,
        Launching, ///< Its worker is awaited.
        Overdue, ///< Its worker did not connect in time; relaunched in a moment, or given up.
        Running, ///< Its worker is connected, or was when the dispatcher went.
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
