#pragma once
#include "core/ipc/dispatcher/dispatcher.h"
#include "core/ipc/module_manager/module_definition.h"
#include "core/ipc/module_manager/module_status.h"
#include "foundation/signal.h"
#include <functional>
#include <memory>
#include <vector>

namespace ipc {

/// Supervises the modules in the main process: launches each one under a fresh worker tag, waits 30 s for its worker to
/// connect, kills and relaunches (after 1 s) a process that stops answering, relaunches one that exits, and gives up with
/// a fatal error where that does not help. What the application does about a fatal error is the main program's business.
///
///     not launched -> launching -> connected -> (exit, or not responding: killed) -> 1 s -> launching
///                        |-- first time-out, or exit of the first launch: relaunch in 1 s
///                        '-- second time-out, exit of a later launch, or a launch that throws: fatal
///
/// Belongs to the thread of the dispatcher's loop. The dispatcher outlives `start()`; afterwards either may be
/// destroyed first.
class FN_EXPORT ModuleManager final {
public:
    /// Takes the definitions over.
    ModuleManager(Dispatcher& dispatcher, std::vector<ModuleDefinition*>&& definitions);
    ModuleManager(ModuleManager&&) noexcept;
    ~ModuleManager(); ///< Neither kills modules nor waits for them.

    /// Launches the modules, in the order given, and runs the default run loop until it stops: itself, or through the
    /// module that runs the main loop. After a `stop()` it launches nobody and runs the loop itself.
    void start();

    void stop(); ///< From now on nothing is launched any more. Running modules are left alone.

    /// The end of the application, once the loop has stopped: stops, and runs the loop until the processes of all modules have
    /// gone. They have been told by `Dispatcher::stop()`, or see that the dispatcher is not there any more; those that are only
    /// just starting are killed at once, and after `graceTime` those that are left.
    void end(fn::Duration graceTime);

    std::vector<ModuleStatus> modules() const; ///< In the order given.
    /// Tells what `modules()` tells, for those who may outlive the manager or see it move: nothing once it has gone.
    std::function<std::vector<ModuleStatus>()> modulesSource() const;

    fn::Signal<fn::String>& onFatalError(); ///< With a message for people.
    fn::Signal<>& onAllModulesConnected(); ///< Again each time a relaunched module completes the set.
    fn::Signal<fn::String>& onModuleNotResponding(); ///< With the module's name.

private:
    class State;
    fn::AutoPtr<State>
        _state; // Timers and the dispatcher's signals hold it weakly: the manager moves, and may go first.
};

} // namespace ipc
