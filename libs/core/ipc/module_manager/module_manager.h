#pragma once
#include "core/ipc/dispatcher/dispatcher.h"
#include "core/ipc/module_manager/module_definition.h"
#include "foundation/signal.h"
#include <functional>
#include <vector>

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
    ///     Ended                       -> Running      its worker's HELLO is read after the exit; its end follows
    enum class State {
        NotLaunched,
        Launching, ///< The manager waits for the module's worker.
        Overdue, ///< The worker did not connect in time; the module is relaunched in a moment, or given up.
        Running, ///< The worker is connected, or was so when the dispatcher was destroyed.
        Ended, ///< Its process or worker has gone. A process is relaunched in a moment, or given up.
    };

    fn::String name;
    fn::String workerTag; ///< The tag of the latest launch; empty before the first.
    State state = State::NotLaunched;
    bool isSeparateProcess = false;
    int launches = 0; ///< All launches.
    int timeouts = 0; ///< All launches whose worker did not connect in time.
};

/// Supervises the modules in the main process: launches each one under a fresh worker tag, kills a process that stops answering
/// or whose worker does not connect in time, and launches again, a second later, what was killed or has exited. It gives a
/// module up with a fatal error where that does not help: at the second time-out ever, at the exit of a later launch
/// than the first before its worker has connected, and where a launch throws. `ModuleStatus::State` shows the states. What the
/// application does about a fatal error is the main program's business.
///
/// Belongs to the thread of the dispatcher's loop. The dispatcher outlives `start()`; afterwards either may be
/// destroyed first.
class FN_EXPORT ModuleManager final {
public:
    /// Takes the definitions over.
    ModuleManager(Dispatcher& dispatcher, std::vector<ModuleDefinition*>&& definitions);
    ModuleManager(ModuleManager&&) noexcept;
    ~ModuleManager(); ///< Neither kills modules nor waits for them.

    /// Launches the modules and runs the default run loop until it stops. A module whose entry point runs the main loop is
    /// launched first, and the others in the order given. After a `stop()` nothing is launched, but the loop runs.
    void start();

    void stop(); ///< From now on nothing is launched any more. Running modules are left alone.

    /// Ends the application when the loop has stopped: stops launching, and runs the loop until the processes of all modules have
    /// ended. `Dispatcher::stop()` has told them to quit, or they see that the dispatcher has gone. Modules that are still
    /// launching are killed at once, those that have not ended within `graceTime` then.
    void end(fn::Duration graceTime);

    std::vector<ModuleStatus> modules() const; ///< In the order given.
    /// A function that gives `modules()`, for users that may outlive the manager or see it move; none once it has gone.
    std::function<std::vector<ModuleStatus>()> modulesSource() const;

    fn::Signal<fn::String>& onFatalError(); ///< Fires with a message for people.
    fn::Signal<>& onAllModulesConnected(); ///< Fires at each connect when every module has connected at least once.
    fn::Signal<fn::String>& onModuleNotResponding(); ///< Fires with the module's name.

private:
    class State;
    // Timers and the dispatcher's signals refer to the state weakly: the manager moves, and may be destroyed first.
    fn::AutoPtr<State> _state;
};

} // namespace ipc
