#include "skyfold/program.h"
#include "api/inspection.h"
#include "api/log_output.h"
#include "base/exceptions.h"
#include "core/ipc/registry.h"
#include "core/ipc/run_module.h"
#include "core/ipc_services/inspector/dispatcher_inspector.h"
#include "core/ipc_services/inspector/modules_inspector.h"
#include "core/ipc_services/inspector/register_inspector_registry.h"
#include "core/ipc_services/inspector/registry_inspector.h"
#include "core/services/logging_profile/logging_profiles.h"
#include "foundation/logging/logging.h"
#include "foundation/run_loop.h"
#include "skyfold/children.h"
#include "skyfold/hub_address.h"
#include <csignal>
#include <cstdio>

namespace media {
namespace {

constexpr int failed = 1;
constexpr int signalled = 128; // And the signal's number.

constexpr auto notRespondingTimeout = fn::Duration::seconds(30);

// Where a module hangs, someone who has pressed Ctrl-C waits so long. A busy machine needs a part of it for those that do not.
constexpr auto graceTime = fn::Duration::seconds(2);
constexpr auto reapTime = fn::Duration::milliseconds(300);

constexpr const char* loader = "module_loader";

constexpr std::size_t mostWaitingScans = 1000;

const fn::logging::Category& category()
{
    static const auto& category = fn::logging::CategoryManager::instance().getCategory("mediaServer.skyfold");
    return category;
}

} // namespace

Program::Program(Options options, SingleInstance& instance)
    : _options(std::move(options)),
      _instance(instance),
      _loop(fn::RunLoop::defaultLoop().uvLoop()),
      _dispatcher(std::in_place, _loop, notRespondingTimeout),
      _manager(*_dispatcher, modules()),
      _exitCode(failed),
      _message("The console has ended unexpectedly.")
{
}

Program::~Program() = default;

/// All of them are the manager's; we keep an eye on those with a process of their own.
std::vector<ipc::ModuleDefinition*> Program::modules()
{
    std::vector<const char*> names { "library", "scanner" };
    if (_options.inspectWeb) names.push_back("inspector_web");
    for (const auto* name : names)
        _processes.push_back(ipc::ModuleDefinition::create(name, loader, false, false, false));
    auto all = _processes;
    all.insert(all.begin(), ipc::ModuleDefinition::create("console", loader, true, true, false));
    return all;
}

int Program::run()
{
    for (const int signal : { SIGINT, SIGTERM, SIGHUP }) {
        _signals.push_back(
            std::make_unique<fn::uv::SignalWatcher>(_loop, signal, [this, signal] { end(signalled + signal); }));
    }
    _connections.push_back(_dispatcher->onReady().connect([this] {
        auto& worker = _dispatcher->worker();
        worker.registry()->registerObject(
            fn::makeAuto<ApplicationService>(worker, static_cast<ApplicationService::Owner&>(*this)), 0);
        publishInspectors();
    }));
    _connections.push_back(
        _manager.onFatalError().connect([this](const fn::String& message) { end(failed, message); }));
    using WorkerInfo = ipc::Dispatcher::WorkerInfo;
    _connections.push_back(_dispatcher->onWorkerConnected().connect(
        [this](const WorkerInfo& info) { _connected.insert(info.displayName); }));
    for (auto* process : _processes) {
        _connections.push_back(
            process->onExit().connect([this, name = process->name()](std::int64_t, int) { _connected.erase(name); }));
    }
    _instance.accept([this](const fn::Value& value) { onCommand(value); });
    _dispatcher->bind();
    const HubAddress address(_dispatcher->pipePath());
    _dispatcher->start();
    _manager.start(); // Runs the loop, through the console.
    endModules();
    if (!_message.empty()) std::fprintf(stderr, "skyfold: %s\n", _message.c_str());
    return _exitCode;
}

void Program::nextScan(NextScan answer)
{
    if (!_nextScans.empty()) {
        const auto next = std::move(_nextScans.front());
        _nextScans.pop_front();
        answer(next);
    } else if (_options.inspectWeb || _options.run.inspect) {
        _onNextScan = std::move(answer);
    } else {
        // Who comes when we have closed runs by himself once we have ended.
        _instance.closeWhenQuiet(
            _loop, [this] { return !_nextScans.empty(); },
            [this, answer = std::move(answer)]() mutable {
                if (_nextScans.empty())
                    answer(std::nullopt);
                else
                    nextScan(std::move(answer));
            });
    }
}

void Program::announce(const fn::String& line)
{
    auto* stream = _options.run.json ? stderr : stdout;
    std::fprintf(stream, "%s\n", line.c_str());
    std::fflush(stream);
}

/// The main process's own. Other modules publish theirs.
void Program::publishInspectors()
{
    auto& worker = _dispatcher->worker();
    core::registerInspectorRegistry(worker);
    publish(worker, "Workers", fn::makeAuto<core::DispatcherInspector>(*_dispatcher));
    publish(worker, "Registry", fn::makeAuto<core::RegistryInspector>(*_dispatcher));
    publish(worker, "Modules", fn::makeAuto<core::ModulesInspector>(_manager));
}

/// From another start of the program, or from whoever else of this user writes to the pipe.
void Program::onCommand(const fn::Value& value)
{
    try {
        auto command = Command::fromValue(value);
        if (command.flipVerbose) core::setEnableVerboseLogging(!isVerbose());
        if (!command.scan) return;
        if (_nextScans.size() >= mostWaitingScans) throw fn::RuntimeException("Too many folders are waiting");
        command.scan->json = _options.run.json;
        FN_LOG_TO(category(), fn::logging::Info, {}, "examples/media_server/skyfold", "{} is to be scanned, too",
            command.scan->folder.view());
        _nextScans.push_back(std::move(*command.scan));
        if (_onNextScan) nextScan(std::exchange(_onNextScan, {}));
    } catch (const fn::Exception& exception) {
        FN_LOG_TO(category(), fn::logging::Info, {}, "examples/media_server/skyfold", "Ignoring a command: {}",
            exception.what());
    }
}

/// The first reason to end counts.
void Program::end(int exitCode, const fn::String& message)
{
    if (std::exchange(_isEnding, true)) return;
    _exitCode = exitCode;
    _message = message;
    _instance.close();
    _manager.stop();
    _dispatcher->stop(fn::Duration(), {});
}

void Program::endModules()
{
    _isEnding = true; // Also where the loop has ended for another reason: signals change nothing any more.
    _manager.stop();
    ipc::endModules();
    // One that has just been launched has nothing to end, and would complain that it finds no hub.
    for (auto* process : _processes) {
        if (!_connected.contains(process->name())) process->kill();
    }
    _connections.clear();
    _dispatcher.reset(); // What others have not read of their end they see now.
    awaitChildren(_loop, graceTime);
    for (auto* process : _processes) process->kill();
    reapChildren(reapTime);
}

} // namespace media
