#pragma once
#include "core/ipc/dispatcher/dispatcher.h"
#include "core/ipc/module_manager/module_definition.h"
#include "core/ipc/module_manager/module_options.h"
#include "foundation/promise.h"
#include "foundation/signal.h"
#include <functional>
#include <vector>

namespace ipc {

/// What a ModuleManager knows of one module.
struct ModuleStatus {
    /// What became of the latest launch.
    ///
    ///     any but Stopping            -> Launching    a launch
    ///     Launching                   -> Overdue      its worker has not connected within 30 s
    ///     Launching                   -> Running      its worker connects
    ///     Running                     -> Ended        its worker disconnects, or it has stopped responding
    ///     Launching, Overdue, Running -> Ended        its process exits
    ///     any with a process          -> Stopping     stopModule()
    ///     any other, Stopping         -> Stopped      stopModule(); the process exits
    ///     any but Stopping            -> GivenUp      a launch throws, or an end after which it is not launched again
    enum class State {
        NotLaunched,
        Launching, ///< The manager waits for the module's worker.
        Overdue, ///< The worker did not connect in time; the module is relaunched in a moment.
        Running, ///< The worker is connected, or was so when the dispatcher was destroyed.
        Ended, ///< Its process or worker has gone. A process is relaunched in a moment.
        Stopping, ///< Its process has been asked to end.
        Stopped, ///< Until `startModule()`.
        GivenUp, ///< Until `startModule()`.
    };

    fn::String name; ///< The module's.
    fn::String workerTag; ///< The tag of the latest launch; empty before the first.
    State state = State::NotLaunched; ///< What it is doing now.
    fn::String
        message; ///< A sentence for people on what has happened at last: "Module decoder is ready". Empty at first.
    bool isSeparateProcess = false; ///< Whether it has a process of its own.
    bool isOptional = false; ///< Whether the application goes on without it, when it is given up.
    int launches = 0; ///< All launches.
    int timeouts = 0; ///< All launches whose worker did not connect in time.
};

/// Supervises the modules in the main process: launches each one under a fresh worker tag, kills a process that stops answering
/// or whose worker does not connect in time, and launches again what was killed or has exited, as its RelaunchPolicy says: by default a
/// second later. It gives a module up where that does not help: by default at the second time-out ever and at the exit of a later launch
/// than the first before its worker has connected; in any case where a launch throws. That is a fatal error, unless the module is
/// optional. What the application does about it is the main program's business. `ModuleStatus::State` shows the states.
///
/// Belongs to the thread of the dispatcher's loop. The dispatcher outlives `start()`; afterwards either may be
/// destroyed first.
class FN_EXPORT ModuleManager final {
public:
    /// Takes the definitions over.
    explicit ModuleManager(Dispatcher& dispatcher, std::vector<ModuleDefinition*>&& definitions = {});
    ModuleManager(ModuleManager&&) noexcept;
    ~ModuleManager(); ///< Neither kills modules nor waits for them.

    /// Adds the module of the library `modules/NAME.dll`. While the manager runs it is launched by a task of the loop. `fn::RuntimeException`
    /// for a name that is there already or can not be that of a file, `fn::RangeException` for a policy that makes no sense.
    void addModule(const fn::String& name, ModuleOptions options = {});

    /// Launches the modules and runs the default run loop until it stops. A module whose entry point runs the main loop is
    /// launched first, and the others in the order given. After a `stop()` nothing is launched, but the loop runs.
    void start();

    void stop(); ///< From now on nothing is launched any more. Running modules are left alone.

    /// Has a module launched that waits for it, was stopped or was given up, by a task of the loop and with all its ends forgotten; one that is
    /// to be launched again is not waited for any longer, one that is just being stopped is launched then. Nothing for one that
    /// runs, and after `stop()`. `fn::RuntimeException` for an unknown one, and for one of the main process whose end has come.
    void startModule(const fn::String& name);

    /// Ends a module's process: SIGTERM, on which the loader ends the module cleanly, and signal 9 after `graceTime`. Fulfilled when the
    /// process has gone, at once where there is none; the module is launched again by `startModule()` alone. A second call
    /// waits for the same end, with its own grace time. Rejected with `fn::RuntimeException` for an unknown module and for one of the
    /// main process. Cancelling the promise does not cancel the end. Needs a running loop.
    fn::Promise<void> stopModule(const fn::String& name, fn::Duration graceTime = fn::Duration::seconds(2));

    /// `stop()`, and kills the modules that are still launching: they have nothing to end, and would complain that they find no hub.
    void endLaunches();

    void killAll(); ///< Kills the processes of all modules, for whoever does not want to wait. After `stop()`.

    /// Ends the application when the loop has stopped: `endLaunches()`, and runs the loop until the processes of all modules have
    /// ended. `Dispatcher::stop()` has told them to quit, or they see that the dispatcher has gone. Modules that
    /// have not ended within `graceTime` are killed then.
    void end(fn::Duration graceTime);

    std::vector<ModuleStatus> modules() const; ///< In the order given.
    ModuleStatus module(const fn::String& name) const; ///< `fn::RuntimeException` for an unknown one.
    /// A function that gives `modules()`, for users that may outlive the manager or see it move; none once it has gone.
    std::function<std::vector<ModuleStatus>()> modulesSource() const;

    fn::Signal<fn::String>& onFatalError(); ///< Fires with a message for people.
    /// Fires at each connect when every module has connected at least once. Optional ones and those that are not to run do not count.
    fn::Signal<>& onAllModulesConnected();
    fn::Signal<fn::String>& onModuleNotResponding(); ///< Fires with the module's name.

    /// Fires when a module enters a state, but for the end of its worker before that of its process. Starting is Launching, ready and
    /// ready again Running, died Ended or Overdue. A listener may start and stop modules.
    fn::Signal<const ModuleStatus&>& onModuleState();

private:
    class State;
    // Timers and the dispatcher's signals refer to the state weakly: the manager moves, and may be destroyed first.
    fn::AutoPtr<State> _state;
};

} // namespace ipc
