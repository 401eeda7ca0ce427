#pragma once
#include "core/ipc/interface/find.h"
#include "core/ipc/module_manager/module_manager.h"
#include "core/services/app_info.h"
#include "foundation/coroutine/scope.h"
#include <memory>
#include <vector>

namespace ipc {

struct ApplicationOptions {
    std::vector<fn::String> modules; ///< Each in a process of its own, by its name (see ModuleDefinition).
    core::AppInfo::App identity = core::AppInfo::App::Skyfold;
    fn::Duration notRespondingTimeout =
        fn::Duration::seconds(30); ///< A module that is silent for so long is started anew.
    fn::Duration graceTime = fn::Duration::seconds(2); ///< How long modules may take to end.
};

/// A main program: the hub, the modules, the loop, and one coroutine, with whose end the program ends.
///
///     fn::Promise<void> run(ipc::Application& app) { ... co_await app.find<Greeter>() ... }
///     int main() { return ipc::Application({ .modules = { "greeter" } }).run(run); }
///
/// Belongs to the main thread. One in a process, before any other thread has begun.
class FN_EXPORT Application {
public:
    explicit Application(ApplicationOptions options);
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    ~Application();

    /// Starts everything, calls `main`, a coroutine, once objects can be found, and waits for its end; then ends everything. To be
    /// called once. Gives the exit code: what `main` gives, 0 for none; 1 where it throws or a module cannot be kept running, with the
    /// reason on standard error; 128 and the number of the signal on SIGINT, SIGTERM and SIGHUP.
    template <typename Main> int run(Main&& main)
    {
        if constexpr (std::is_same_v<std::invoke_result_t<Main&, Application&>, fn::Promise<int>>)
            return runMain([&] { return main(*this); });
        else
            return runMain([&] { return main(*this).then([] { return 0; }); });
    }

    void end(int exitCode = 0); ///< Cancels the coroutine and ends everything. Only the first call counts.

    /// Finds the object of an interface, in whichever process it is; waits until a module offers one. After `patience`:
    /// `fn::OperationTimedOutException`.
    template <typename I> fn::Promise<Ref<I>> find(fn::Duration patience = fn::Duration::seconds(10))
    {
        return ipc::find<I>(worker(), patience);
    }

    Worker& worker(); ///< The hub's own one.
    fn::Scope& scope() { return _scope; } ///< Ends before the hub does.
    Dispatcher& dispatcher() { return *_dispatcher; }
    ModuleManager& modules() { return *_manager; }

private:
    using Main = folly::Function<fn::Promise<int>()>;

    int runMain(Main main);
    fn::Promise<void> follow(Main& main);
    void endWith(int exitCode, const fn::String& message);

    const ApplicationOptions _options;
    std::unique_ptr<Dispatcher> _dispatcher;
    std::unique_ptr<ModuleManager> _manager;
    bool _isEnding = false;
    int _exitCode = 0;
    fn::Scope _scope;
};

} // namespace ipc
