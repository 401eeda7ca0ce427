#pragma once
#include "base/string.h"
#include "core/ipc/interface/value_conversion.h"
#include "core/ipc/message_bus.h"
#include "core/ipc/worker/worker.h"
#include "foundation/coroutine/scope.h"
#include <folly/Function.h>
#include <list>
#include <memory>
#include <vector>

namespace ipc {

/// What a module was launched with.
class FN_EXPORT ModuleInitData {
public:
    /// Made by the entry point from what the loader or the main process gives it.
    ModuleInitData(fn::String pipePath, fn::String displayName, fn::String workerTag, fn::String userData,
        bool separateProcess, bool hasParameters = false)
        : _pipePath(std::move(pipePath)),
          _displayName(std::move(displayName)),
          _workerTag(std::move(workerTag)),
          _userData(std::move(userData)),
          _separateProcess(separateProcess),
          _hasParameters(hasParameters)
    {
    }

    const fn::String& pipePath() const { return _pipePath; } ///< The dispatcher's pipe.
    const fn::String& displayName() const { return _displayName; } ///< For people.
    const fn::String& workerTag() const { return _workerTag; } ///< Names this launch.
    const fn::String& userData() const { return _userData; } ///< For the module alone.
    bool separateProcess() const { return _separateProcess; } ///< Whether the module has a process of its own.
    bool hasParameters() const { return _hasParameters; } ///< Whether the module manager has parameters for it.

private:
    fn::String _pipePath;
    fn::String _displayName;
    fn::String _workerTag;
    fn::String _userData;
    bool _separateProcess;
    bool _hasParameters;
};

/// Base class of a module's own code. A module library makes its object in the entry point (see run_module.h), in a process of
/// its own or in the main process. The Module owns its worker, connects it, and joins the process to the message bus of all
/// processes, once it has fetched its parameters if it has some; then it is *connected*. In a process without the hub one module makes the bus for all modules. When that
/// module ends, another one makes a new bus; until that is ready, posted messages stay in the process.
///
/// Everything runs on the thread of the default run loop. Whoever runs a module ends it with `endModule()` (run_module.h), which ends
/// the scope of the module first, while all members of the derived class are there. Code that destroys a module in another way calls
/// `end()` before; the destructor reports a scope with work or handles in it as a broken invariant.
class FN_EXPORT Module : public Worker::Delegate {
public:
    explicit Module(const ModuleInitData& data); ///< Starts connecting.
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    ~Module() override;

    Worker& worker() { return _worker; } ///< Connects the module to the others; its objects live on it.

    /// What whoever started the module has given it (`ModuleOptions::parameters`); nil if nothing, and before `onConnected()`.
    const fn::Value& parameters() const { return _parameters; }

    /// The same as a structure, or anything else that travels. What does not fit: `fn::DataFormatException` that names the field.
    template <typename T> T parameters() const { return fromValue<T>(_parameters); }

    /// The owner of the module's coroutines, connections and timers. Calls that its coroutines await are cancelled at its end.
    fn::Scope& scope() { return _scope; }
    void end() { _scope.end(); } ///< Ends the scope; `fn::RuntimeException` inside one of its own coroutines.

    /// Runs the default run loop unless this thread already runs one (a module in the main process lives in that one).
    virtual void run();
    virtual void onConnected(); ///< Called once, when worker and message bus are ready. Default: nothing.
    virtual bool wantsIdleTermination(); ///< Whether the module's process may end when nobody needs it. Default: false.
    virtual bool canTerminate(); ///< Whether the idle module may end now; asked once connected. Default: false.
    virtual void terminate(); ///< Stops the default run loop; waits for nothing.
    /// The application is ending, or the dispatcher has gone; told once. Default: `terminate()` in a process of its own,
    /// nothing in the main process, whose loop is the application's.
    virtual void onAboutToQuit();

protected:
    /// For a module that can not do its work, for example with these parameters: writes a line at priority 2, and ends a process of the
    /// module's own with exit code 1. In the main process the module stays.
    void fail(const fn::String& why);

private:
    friend void endModule(std::unique_ptr<Module> module);

    /// A module that waits for the message bus of its process.
    struct BusCallback {
        Module* module;
        folly::Function<void()> run;
    };
    /// The message bus of one process.
    struct BusStart {
        std::list<BusCallback> callbacks; // In the order in which the modules' workers connected.
        Module* starter = nullptr; // The module that is making the bus; null if none does.
        std::vector<Module*> connected; // One of them makes a new bus when the module of the present one ends.
    };
    static BusStart& busStart();

    void workerDidConnect(Worker& worker) override;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual" // A subclass hides this one when it overrides the public one.
    bool wantsIdleTermination(Worker&) override { return wantsIdleTermination(); }
#pragma GCC diagnostic pop
    bool workerCanTerminate(Worker&) override { return _connected && canTerminate(); }
    void workerRequestsTermination(Worker&) override { terminate(); }
    void aboutToQuit(Worker&) override { onAboutToQuit(); }

    static void startMessageBus();
    fn::Promise<void> fetchParameters();
    void joinMessageBus();
    void initializeMessageBus();
    void leaveMessageBus();
    void becomeConnected();
    void close(folly::Function<void()> closed);

    Worker _worker;
    fn::AutoPtr<MessageBus> _messageBus; // Set only in the module that made the process's bus.
    const bool _hasOwnProcess;
    const bool _hasParameters;
    const fn::String _workerTag;
    fn::Value _parameters;
    bool _connected = false;
    fn::Scope _scope; // The last member: it uses the worker.
};

} // namespace ipc
