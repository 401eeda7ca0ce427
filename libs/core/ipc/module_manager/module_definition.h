#pragma once
#include "base/string.h"
#include "foundation/signal.h"
#include <cstdint>
#include <optional>

namespace ipc {

class Dispatcher;

/// Describes one module of the application and knows how to start it and to end it by force. A module is a process of its
/// own or a library in this one; either way it runs a worker that connects to the dispatcher. The ModuleManager, which
/// owns the definitions, decides when. Belongs to the dispatcher's loop.
///
/// Files: NAME's library is `modules/NAME.dll` and the loader `PREFIX.LOADER` beside the programs (see fn::PathManager).
class FN_EXPORT ModuleDefinition {
public:
    /// A library in this process (`inProcess`; `runsMainLoop` where its entry point runs the main loop), else a process of
    /// the loader named `loaderName`. The caller owns it. `extendedSpawnFlags` changes nothing here.
    static ModuleDefinition* create(const fn::String& name, const fn::String& loaderName, bool inProcess,
        bool runsMainLoop, bool extendedSpawnFlags);

    ModuleDefinition();
    ModuleDefinition(const ModuleDefinition&) = delete;
    ModuleDefinition& operator=(const ModuleDefinition&) = delete;

    /// Whether `launch()` runs the loop of the main process until its end, as a console does.
    virtual bool runsMainLoop() = 0;
    /// Starts the module, or throws why it cannot. `workerTag` tells the dispatcher which launch the module's worker comes from.
    /// It is not empty: workers that nobody has launched have the empty tag.
    virtual void launch(Dispatcher& dispatcher, const fn::String& workerTag) = 0;
    virtual void kill() = 0; ///< Ends the module by force, if that can be done; `onExit()` does not fire then.
    virtual bool isSeparateProcess() = 0; ///< Whether the module has a process of its own, which can be killed.
    virtual std::optional<fn::String> executablePath() = 0; ///< Empty if the module has no process of its own.
    virtual fn::String name() = 0; ///< By what it is known in logs and to the manager.
    virtual ~ModuleDefinition();
    /// Sends the module's process a signal, and gives true: `onExit()` fires if it ends. False if no process runs. Default: false.
    virtual bool sendSignal(int signal);

    /// Whether the module is told at its launch that it has parameters to fetch. At first it has none.
    void setHasParameters(bool has) { _hasParameters = has; }

    /// Fires when the module's process has ended, with its exit status and the signal that ended it, or 0.
    fn::Signal<std::int64_t, int>& onExit() { return _onExit; }

protected:
    bool hasParameters() const { return _hasParameters; } ///< Whether the module asks the manager for parameters.
    /// The path of a program of that name, where PathManager looks for programs.
    static fn::String pathForExecutable(const fn::String& name);
    static fn::String pathForSharedLibrary(const fn::String& name); ///< `name` is without the ending.

private:
    fn::Signal<std::int64_t, int> _onExit;
    bool _hasParameters = false;
};

} // namespace ipc
