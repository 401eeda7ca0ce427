#include "core/ipc/application.h"
#include "base/exceptions.h"
#include "core/ipc/run_module.h"
#include "foundation/run_loop.h"
#include "foundation/uv/loop.h"
#include "foundation/uv/signal_watcher.h"
#include <cerrno>
#include <csignal>
#include <cstdio>

namespace ipc {
namespace {

constexpr int failed = 1;
constexpr int signalled = 128; // The exit code is this plus the signal's number.

std::vector<ModuleDefinition*> definitionsOf(const ApplicationOptions& options)
{
    std::vector<ModuleDefinition*> definitions;
    definitions.reserve(options.modules.size());
    for (const auto& name : options.modules)
        definitions.push_back(ModuleDefinition::create(name, "module_loader", false, false, false));
    return definitions;
}

} // namespace

Application::Application(ApplicationOptions options) : _options(std::move(options))
{
    core::AppInfo::initialize(_options.identity);
    _dispatcher = std::make_unique<Dispatcher>(fn::RunLoop::defaultLoop().uvLoop(), _options.notRespondingTimeout);
    _manager = std::make_unique<ModuleManager>(*_dispatcher, definitionsOf(_options));
}

Application::~Application() = default;

Worker& Application::worker() { return _dispatcher->worker(); }

int Application::runMain(Main main)
{
    auto& loop = fn::RunLoop::defaultLoop().uvLoop();
    std::vector<std::unique_ptr<fn::uv::SignalWatcher>> signals;
    for (const int signal : { SIGINT, SIGTERM, SIGHUP })
        signals.push_back(
            std::make_unique<fn::uv::SignalWatcher>(loop, signal, [=, this] { end(signalled + signal); }));
    _scope.connect(_dispatcher->onReady(), [&] { _scope.start(follow(main)); });
    _scope.connect(_manager->onFatalError(), [this](const fn::String& message) { endWith(failed, message); });
    _dispatcher->bind();
    _dispatcher->start();
    _manager->start(); // Runs the loop until the dispatcher stops it.
    _isEnding = true;
    _scope.end();
    _manager->stop();
    endModules();
    _dispatcher.reset(); // Processes that have not read QUIT see the end of their connection.
    _manager->end(_options.graceTime);
    return _exitCode;
}

/// Ends the application with the outcome of its coroutine.
fn::Promise<void> Application::follow(Main& main)
{
    int exitCode = failed;
    fn::String message;
    try {
        exitCode = co_await main();
    } catch (const std::exception& exception) {
        message = exception.what();
    } catch (...) {
        message = "Unknown exception";
    }
    endWith(exitCode, message);
}

void Application::end(int exitCode) { endWith(exitCode, {}); }

void Application::endWith(int exitCode, const fn::String& message)
{
    if (std::exchange(_isEnding, true)) return;
    _exitCode = exitCode;
    if (!message.empty()) std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, message.c_str());
    // In a task, since the scope does not end inside of its coroutines, of which this may be called. If the loop stops for another
    // reason before, `runMain()` ends everything, and the task does nothing.
    fn::RunLoop::defaultLoop().post(_scope.guard([this] {
        try {
            _scope.end();
        } catch (const fn::RuntimeException&) { // One of them runs the loop, which is stopped now.
        }
        _manager->stop();
        _dispatcher->stop(fn::Duration(), {});
    }));
}

} // namespace ipc
