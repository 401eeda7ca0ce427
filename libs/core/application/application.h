#pragma once
#include "core/application/application_options.h"
#include "core/application/single_instance.h"
#include "core/ipc/interface/find.h"
#include "core/ipc/module_manager/module_manager.h"
#include "foundation/coroutine/scope.h"
#include "foundation/uv/signal_watcher.h"
#include <memory>
#include <vector>

namespace ipc {

/// A main program: its identity and logs, the hub, the modules, the loop, signals, and one coroutine, with whose end the program ends.
///
///     int main(int argc, char** argv)
///     {
///         ipc::Application app({ .name = "Thumbs", .id = "thumbs", .version = "1.0" }, argc, argv);
///         app.addModule("decoder");
///         return app.run([&]() -> fn::Promise<int> { ... co_await app.find<Decoder>() ... co_return 0; });
///     }
///
/// Belongs to the main thread. One in a process, before any other thread has begun.
class FN_EXPORT Application {
public:
    /// Declares the application, so that its folders are known, and watches SIGINT, SIGTERM and SIGHUP until `run()` returns, unless they
    /// are ignored: each ends the application, a second one without waiting for the modules. An identity that is not as it must be, or under whose id something
    /// else is installed: `run()` says so, and does nothing else.
    explicit Application(ApplicationOptions options);
    /// Takes `--help`, `--version`, `--verbose` and `--log PRIORITY` from the command line. What one of them has printed, or a wrong
    /// one, is all that `run()` does then.
    Application(ApplicationOptions options, int argc, const char* const* argv);
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    ~Application();

    /// What the command line had besides, without the program's name.
    const std::vector<fn::String>& arguments() const { return _arguments; }

    /// Starts everything, calls `main`, a coroutine with or without a parameter `Application&`, once objects can be found, and waits for
    /// its end; then ends everything: returns when the last module has gone, after the grace time at the latest. To be called once.
    ///
    /// Gives the exit code: what `main` gives, 0 for none; 1 where it throws or a module cannot be kept running, with the reason on
    /// standard error; 128 and the number of the signal; 2 for a wrong command line. 0 where another program of the application has
    /// taken this one's command.
    template <typename Main> int run(Main&& main)
    {
        const auto call = [&] {
            if constexpr (std::is_invocable_v<Main&, Application&>)
                return main(*this);
            else
                return main();
        };
        if constexpr (std::is_same_v<decltype(call()), fn::Promise<int>>)
            return runMain(call);
        else
            return runMain([&] { return call().then([] { return 0; }); });
    }

    /// Cancels the coroutine and ends everything. A message is printed on standard error, behind the program's name. Only the first
    /// call counts.
    void end(int exitCode = 0, const fn::String& message = {});
    bool isEnding() const { return _isEnding; } ///< From the first `end()`, whoever has called it.

    // --- Modules

    /// Adds the module NAME, that is `modules/NAME.dll`, before or while the application runs: then it is started at once. A name that
    /// is there already or that cannot be that of a file: `fn::RuntimeException`, which `run()` tells if the module was added before.
    void addModule(const fn::String& name, ModuleOptions options = {});
    /// Starts a module that was stopped or given up, or that was added with `.isStarted = false`. While the application runs.
    void startModule(const fn::String& name) { modules().startModule(name); }
    /// Ends a module's process, within the grace time; fulfilled when it has gone. While the application runs. `fn::RuntimeException` for
    /// modules of the main process, which stay.
    fn::Promise<void> stopModule(const fn::String& name) { return modules().stopModule(name, _options.graceTime); }
    ModuleStatus module(const fn::String& name) { return modules().module(name); } ///< While the application runs.
    /// Fires when a module starts, is ready, has died, was started anew, was given up or has been stopped.
    fn::Signal<const ModuleStatus&>& onModuleState() { return _onModuleState; }

    // --- What the coroutine uses

    /// Finds the object of an interface, in whichever process it is; waits until a module offers one. After `patience`:
    /// `fn::OperationTimedOutException`.
    template <typename I> fn::Promise<Ref<I>> find(fn::Duration patience = fn::Duration::seconds(10))
    {
        return ipc::find<I>(worker(), patience);
    }

    /// To be connected before the coroutine waits for the first time. Fires with what another start of the program has handed over (`ApplicationOptions::isSingle`). Any process of the user can send
    /// what it likes: to be checked.
    fn::Signal<const fn::Value&>& onCommand() { return _onCommand; }
    SingleInstance& singleInstance() { return _instance; } ///< For an end that loses no command: `closeUnless()`.

    fn::Scope& scope() { return _scope; } ///< Ends before the hub does.

    // These exist while the application runs: from the call of the coroutine, and of `onModuleState()`, to the end of `scope()`.
    Worker& worker(); ///< The hub's own one.
    Dispatcher& dispatcher(); ///< The hub.
    ModuleManager& modules(); ///< All modules, those of the main process included.

private:
    using Main = folly::Function<fn::Promise<int>()>;
    struct Only; // Exists once in a process.

    int runMain(Main main);
    bool isFirst();
    void startLogging();
    void runHub(Main& main);
    void acceptCommands();
    void onSignal(int signal);
    fn::Promise<void> follow(Main& main);
    void endHub();
    void endAll();
    fn::Value command() const;

    const std::unique_ptr<Only> _only;
    const ApplicationOptions _options;
    std::vector<fn::String> _arguments;
    std::optional<int> _logPriority;
    bool _isVerbose = false;
    std::vector<std::pair<fn::String, ModuleOptions>> _added; // Until there is a manager.
    std::vector<std::unique_ptr<fn::uv::SignalWatcher>> _signals;
    SingleInstance _instance;
    std::unique_ptr<Dispatcher> _dispatcher;
    std::unique_ptr<ModuleManager> _manager;
    fn::Signal<const ModuleStatus&> _onModuleState;
    fn::Signal<const fn::Value&> _onCommand;
    bool _isEnding = false;
    bool _isSignalled = false;
    fn::Duration _end; // When the grace time is over, by the loop's clock; once the end has begun.
    int _exitCode = 0;
    fn::Scope _scope;
};

} // namespace ipc
