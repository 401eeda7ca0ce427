#include "skyfold/program.h"
#include "api/text.h"
#include "base/exceptions.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/registry.h"
#include "core/ipc/run_module.h"
#include "core/ipc_services/inspector/dispatcher_inspector.h"
#include "core/ipc_services/inspector/modules_inspector.h"
#include "core/ipc_services/inspector/publish_inspector.h"
#include "core/ipc_services/inspector/register_inspector_registry.h"
#include "core/ipc_services/inspector/registry_inspector.h"
#include "core/services/logging_profile/logging_profiles.h"
#include "foundation/coroutine/next.h"
#include "foundation/logging/logging.h"
#include "foundation/message_bus.h"
#include "foundation/run_loop.h"
#include "inspector_web/announcement.h"
#include "skyfold/ending_signals.h"
#include "skyfold/hub_address.h"
#include <cstdio>

namespace media {
namespace {

constexpr int failed = 1;
constexpr int signalled = 128; // The exit code is this plus the signal's number.

constexpr auto notRespondingTimeout = fn::Duration::seconds(30);

// How long a user who has pressed Ctrl-C waits for a module that hangs. On a busy machine other modules need a part of it.
constexpr auto graceTime = fn::Duration::seconds(2);

constexpr std::size_t mostWaitingScans = 1000;

constexpr auto& category = fn::logging::category<"mediaServer.skyfold">;

std::vector<ipc::ModuleDefinition*> modulesOf(const Options& options)
{
    const auto create = [](const char* name, bool isConsole) {
        return ipc::ModuleDefinition::create(name, "module_loader", isConsole, isConsole, false);
    };
    std::vector result { create("console", true), create("library", false), create("scanner", false) };
    if (options.inspectWeb) result.push_back(create("inspector_web", false));
    return result;
}

} // namespace

/// The program as its modules see it.
class Program::ApplicationService final : public ipc::Service<ApplicationService, Application> {
public:
    ApplicationService(ipc::Worker& worker, Program& program) : Service(worker), _program(program) { }

    RunOptions options() { return _program._options.run; }
    fn::Promise<std::optional<RunOptions>> nextScan() { return _program.nextScan(); }
    void finish(const Ending& ending) { _program.end(ending); }

private:
    Program& _program;
};

Program::Program(Options options, SingleInstance& instance)
    : _options(std::move(options)),
      _instance(instance),
      _loop(fn::RunLoop::defaultLoop().uvLoop()),
      _dispatcher(std::in_place, _loop, notRespondingTimeout),
      _manager(*_dispatcher, modulesOf(_options)),
      _ending { failed, "The console has ended unexpectedly." }
{
}

Program::~Program() = default;

int Program::run()
{
    const EndingSignals signals(_loop, [this](int signal) { end({ signalled + signal, {} }); });
    _scope.connect(_dispatcher->onReady(), [this] { onReady(); });
    _scope.connect(_manager.onFatalError(), [this](const fn::String& message) { end({ failed, message }); });
    for (const auto* name : { inspector_web::addressMessage, inspector_web::failureMessage }) {
        _scope.connect(fn::MessageBus::instance().onMessage(name),
            [this](const fn::String& name, const fn::Value& body) { onAnnouncement(name, body); });
    }
    _instance.accept([this](const fn::Value& value) { onCommand(value); });
    _dispatcher->bind();
    const HubAddress address(_dispatcher->pipePath());
    _dispatcher->start();
    _manager.start(); // The entry point of the console's module runs the loop.
    endAll();
    if (!_ending.message.empty()) std::fprintf(stderr, "skyfold: %s\n", _ending.message.c_str());
    return _ending.exitCode;
}

void Program::onReady()
{
    auto& worker = _dispatcher->worker();
    worker.registry()->registerObject(fn::makeAuto<ApplicationService>(worker, *this), 0);
    core::registerInspectorRegistry(worker);
    // The inspectors of the main process. Modules publish their own.
    core::publishInspector(worker, "Workers", fn::makeAuto<core::DispatcherInspector>(*_dispatcher));
    core::publishInspector(worker, "Registry", fn::makeAuto<core::RegistryInspector>(*_dispatcher));
    core::publishInspector(worker, "Modules", fn::makeAuto<core::ModulesInspector>(_manager));
    if (_options.inspect) _scope.start(browse());
}

fn::Promise<void> Program::browse()
{
    InspectorBrowser browser(_dispatcher->worker());
    co_await browser.run();
    end({});
}

fn::Promise<std::optional<RunOptions>> Program::nextScan()
{
    const bool stays = _options.inspectWeb || _options.inspect;
    while (_nextScans.empty()) {
        // Another start that comes when this program has closed runs the modules itself, when this one has ended.
        if (stays)
            co_await fn::next(_onScan);
        else if (co_await _instance.closeUnless([this] { return !_nextScans.empty(); }))
            co_return std::nullopt;
    }
    auto next = std::move(_nextScans.front());
    _nextScans.pop_front();
    co_return next;
}

/// Called each time the module of the web pages has started. If the result is JSON, standard output is for that alone.
void Program::onAnnouncement(const fn::String& name, const fn::Value& body)
{
    auto* stream = _options.run.json ? stderr : stdout;
    const auto* what = name == inspector_web::addressMessage ? "Inspect at" : "The inspectors cannot be shown:";
    std::fprintf(stream, "%s %s\n", what, printable(body.asString()).c_str());
    std::fflush(stream);
}

/// Handles a command of another start of the program, or of any other process of this user.
void Program::onCommand(const fn::Value& value)
{
    try {
        auto command = Command::fromValue(value);
        if (command.flipVerbose) core::setEnableVerboseLogging(!core::isVerboseLoggingEnabled());
        if (!command.scan) return;
        if (_nextScans.size() >= mostWaitingScans) throw fn::RuntimeException("Too many folders are waiting");
        command.scan->json = _options.run.json;
        FN_LOG_TO(category(), fn::logging::Info, {}, "examples/media_server/skyfold", "{} is to be scanned, too",
            command.scan->folder.view());
        _nextScans.push_back(std::move(*command.scan));
        _onScan.fire();
    } catch (const fn::Exception& exception) {
        FN_LOG_TO(category(), fn::logging::Info, {}, "examples/media_server/skyfold", "Ignoring a command: {}",
            exception.what());
    }
}

/// Ends the program. Only the first call counts.
void Program::end(const Ending& ending)
{
    if (std::exchange(_isEnding, true)) return;
    _ending = ending;
    _instance.close();
    _manager.stop();
    _dispatcher->stop(fn::Duration(), {});
}

void Program::endAll()
{
    _isEnding = true; // The loop may have ended for another reason. From now on signals change nothing.
    _scope.end();
    _manager.stop();
    ipc::endModules();
    _dispatcher.reset(); // Processes that have not read QUIT see the end of their connection.
    _manager.end(graceTime);
}

} // namespace media
