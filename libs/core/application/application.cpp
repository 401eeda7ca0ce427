#include "core/application/application.h"
#include "base/exceptions.h"
#include "core/application/command_line.h"
#include "core/application/installed_marker.h"
#include "core/ipc/run_module.h"
#include "core/services/app_info.h"
#include "core/services/logging_profile/logging_profiles.h"
#include "foundation/run_loop.h"
#include "foundation/system/process_local.h"
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "foundation/uv/system.h"
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>

namespace ipc {
namespace {

constexpr int failed = 1;
constexpr int signalled = 128; // The exit code is this plus the signal's number.

fn::uv::Loop& mainLoop() { return fn::RunLoop::defaultLoop().uvLoop(); }

} // namespace

struct Application::Only {
    Only()
    {
        if (std::exchange(exists(), true)) {
            throw fn::RuntimeException(
                "This process has an ipc::Application already. A process is the main process of one "
                "application, once");
        }
    }
    ~Only() { exists() = false; }

    static bool& exists()
    {
        static fn::ProcessLocal<bool> exists;
        return exists.get();
    }
};

Application::Application(ApplicationOptions options)
    : _only(std::make_unique<Only>()),
      _options(std::move(options)),
      _logPriority(_options.logPriority),
      _isVerbose(_options.isVerbose)
{
    try {
        const auto identity = _options.identity();
        core::AppInfo::initialize(identity);
        checkInstalledMarker(identity);
    } catch (const fn::RuntimeException& exception) {
        end(failed, exception.what());
    }
    for (const int signal : { SIGINT, SIGTERM, SIGHUP }) {
        if (fn::uv::SignalWatcher::isIgnored(signal)) continue;
        _signals.push_back(
            std::make_unique<fn::uv::SignalWatcher>(mainLoop(), signal, [=, this] { onSignal(signal); }));
    }
    for (const auto& module : _options.modules) addModule(module);
}

Application::Application(ApplicationOptions options, int argc, const char* const* argv)
    : Application(std::move(options))
{
    if (_isEnding) return; // `run()` says why.
    auto line = CommandLine::parse({ argv, static_cast<std::size_t>(argc) }, _options);
    _arguments = std::move(line.arguments);
    if (line.logPriority) _logPriority = line.logPriority;
    _isVerbose |= line.isVerbose;
    if (line.exitCode) end(*line.exitCode);
}

Application::~Application() = default;

Worker& Application::worker() { return dispatcher().worker(); }

Dispatcher& Application::dispatcher()
{
    if (!_dispatcher) throw fn::RuntimeException("The application does not run: no hub exists");
    return *_dispatcher;
}

ModuleManager& Application::modules()
{
    if (!_manager) throw fn::RuntimeException("The application does not run: no module manager exists");
    return *_manager;
}

void Application::addModule(const fn::String& name, ModuleOptions options)
{
    if (_manager)
        _manager->addModule(name, std::move(options));
    else
        _added.emplace_back(name, std::move(options));
}

// --- From the start to the end

int Application::runMain(Main main)
{
    try {
        if (_isEnding || !isFirst()) return _exitCode;
        startLogging();
        runHub(main);
        end(failed, "Other code has stopped the main loop"); // Unless the application has ended it.
    } catch (const std::exception& exception) {
        end(failed, exception.what());
    }
    endAll();
    return _exitCode;
}

/// When the loop has stopped.
void Application::endAll()
{
    _scope.end();
    _instance.close();
    if (_manager) _manager->stop();
    endModules();
    _dispatcher.reset(); // Processes that have not read QUIT see the end of their connection.
    if (_manager) _manager->end(std::max(_end - mainLoop().clock().monotonic(), fn::Duration()));
    _manager.reset();
    _signals.clear();
}

/// Whether this process runs the application; otherwise there is nothing left to do.
bool Application::isFirst()
{
    if (!_options.isSingle) return true;
    const auto role = _instance.begin(mainLoop(), command(), [this] { return _isEnding; });
    if (role == SingleInstance::Role::Second) {
        if (_options.onHandedOver)
            _options.onHandedOver();
        else
            std::printf(
                "Handed over to the %s that is running.\n", core::AppInfo::instance().applicationDisplayName().c_str());
    }
    return role == SingleInstance::Role::First;
}

fn::Value Application::command() const
{
    if (!_options.command.isNil()) return _options.command;
    auto arguments = fn::Value::array({});
    for (const auto& argument : _arguments) arguments.append(argument);
    return fn::Value::map(
        { { "arguments", std::move(arguments) }, { "folder", fn::String(std::filesystem::current_path().string()) } });
}

void Application::startLogging()
{
    if (fn::uv::System::current()) return; // The simulated world keeps the log of its processes.
    core::initLoggingProfiles(core::AppInfo::instance().id());
    if (_logPriority) core::setConsoleThreshold(*_logPriority);
    if (_isVerbose) core::setEnableVerboseLogging(true);
}

/// Runs the loop until `end()`, or other code, stops it.
void Application::runHub(Main& main)
{
    _dispatcher = std::make_unique<Dispatcher>(mainLoop(), _options.notRespondingTimeout);
    _manager = std::make_unique<ModuleManager>(*_dispatcher);
    for (auto& [name, options] : std::exchange(_added, {})) _manager->addModule(name, std::move(options));
    _scope.connect(_dispatcher->onReady(), [&] {
        _scope.start(follow(main));
        acceptCommands();
    });
    _scope.connect(_manager->onFatalError(), [this](const fn::String& message) { end(failed, message); });
    _scope.connect(_manager->onModuleState(), [this](const ModuleStatus& status) { _onModuleState.fire(status); });
    _dispatcher->bind();
    _dispatcher->start();
    _manager->start();
}

/// Behind the coroutine's first steps, so that it can listen. Another start tries again until it is heard.
void Application::acceptCommands()
{
    if (!_options.isSingle || _isEnding) return;
    try {
        _instance.accept([this](const fn::Value& command) { _onCommand.fire(command); });
    } catch (const std::exception& exception) {
        end(failed, exception.what());
    }
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
    end(exitCode, message);
}

// --- The end

void Application::onSignal(int signal)
{
    if (!std::exchange(_isSignalled, true)) return end(signalled + signal);
    _end = {}; // Who asks twice does not want to wait.
    if (_manager) _manager->killAll();
    mainLoop().stop();
}

void Application::end(int exitCode, const fn::String& message)
{
    if (std::exchange(_isEnding, true)) return;
    _exitCode = exitCode;
    _end = mainLoop().clock().monotonic() + _options.graceTime;
    if (!message.empty()) std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, message.c_str());
    if (_manager) _manager->endLaunches(); // From now on no exit is one that nobody has asked for.
    // In a task, since the scope does not end inside of its coroutines, of which this may be called. If the loop stops for another
    // reason before, `runMain()` ends everything, and the task does nothing.
    mainLoop().post(_scope.guard([this] { endHub(); }));
}

void Application::endHub()
{
    try {
        _scope.end();
    } catch (const fn::RuntimeException&) { // One of them runs the loop, which is stopped now.
        mainLoop().post(_scope.guard([this] { endHub(); })); // Once that one has left its run.
        return mainLoop().stop();
    }
    _instance.close(); // Later starts wait for the end of this process.
    if (!_dispatcher) return mainLoop().stop();
    _dispatcher->end(_options.graceTime).then([] { mainLoop().stop(); });
}

} // namespace ipc
