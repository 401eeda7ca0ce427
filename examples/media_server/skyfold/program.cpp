#include "skyfold/program.h"
#include "api/text.h"
#include "base/exceptions.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/registry.h"
#include "core/ipc_services/inspector/dispatcher_inspector.h"
#include "core/ipc_services/inspector/modules_inspector.h"
#include "core/ipc_services/inspector/publish_inspector.h"
#include "core/ipc_services/inspector/register_inspector_registry.h"
#include "core/ipc_services/inspector/registry_inspector.h"
#include "core/services/app_info.h"
#include "core/services/logging_profile/logging_profiles.h"
#include "foundation/coroutine/next.h"
#include "foundation/logging/logging.h"
#include "foundation/message_bus.h"
#include "inspector_web/announcement.h"
#include "skyfold/command.h"
#include "skyfold/hub_address.h"
#include "skyfold/inspector_browser.h"
#include <cstdio>

namespace media {
namespace {

constexpr std::size_t mostWaitingScans = 1000;

FN_LOG_CATEGORY("mediaServer.skyfold");

/// The command for a program that runs already.
fn::Value commandOf(const Options& options)
{
    Command command;
    command.flipVerbose = options.verbose;
    if (options.action == Options::Action::Scan) command.scan = options.run;
    return command.toValue();
}

ipc::ApplicationOptions applicationOptions(const Options& options)
{
    const auto identity = core::AppInfo::identityOf(options.app);
    ipc::ApplicationOptions result { .name = identity.name, .id = identity.id, .version = identity.version };
    result.isSingle = options.isSingle;
    result.command = commandOf(options);
    result.onHandedOver = [isScan = options.action == Options::Action::Scan, isJson = options.run.json] {
        std::fputs(isScan ? "Handed over to the Skyfold that is running.\n" : "Verbose logging has been switched.\n",
            isJson ? stderr : stdout);
    };
    result.logPriority = options.logPriority;
    result.isVerbose = options.verbose;
    return result;
}

} // namespace

/// The program as its modules see it.
class Program::ApplicationService final : public ipc::Service<ApplicationService, Application> {
public:
    ApplicationService(ipc::Worker& worker, Program& program) : Service(worker), _program(program) { }

    RunOptions options() { return _program._options.run; }
    fn::Promise<std::optional<RunOptions>> nextScan() { return _program.nextScan(); }
    void finish(const Ending& ending) { _program._onFinish.fire(ending); }

private:
    Program& _program;
};

Program::Program(Options options) : _options(std::move(options)), _app(applicationOptions(_options))
{
    _app.addModule("console", { .inMainProcess = true });
    _app.addModule("library");
    _app.addModule("scanner");
    if (_options.inspectWeb) _app.addModule("inspector_web");
    _app.scope().connect(_app.onCommand(), [this](const fn::Value& value) { onCommand(value); });
    for (const auto* name : { inspector_web::addressMessage, inspector_web::failureMessage }) {
        _app.scope().connect(fn::MessageBus::instance().onMessage(name),
            [this](const fn::String& name, const fn::Value& body) { onAnnouncement(name, body); });
    }
}

int Program::run()
{
    return _app.run([this] { return main(); });
}

fn::Promise<int> Program::main()
{
    const HubAddress address(_app.dispatcher().pipePath());
    offerObjects();
    if (_options.inspect) {
        InspectorBrowser browser(_app.worker());
        co_await browser.run();
        co_return 0;
    }
    const auto ending = co_await fn::next(_onFinish);
    _app.end(ending.exitCode, ending.message);
    co_return ending.exitCode;
}

void Program::offerObjects()
{
    auto& worker = _app.worker();
    worker.registry()->registerObject(fn::makeAuto<ApplicationService>(worker, *this), 0);
    core::registerInspectorRegistry(worker);
    // The inspectors of the main process. Modules publish their own.
    core::publishInspector(worker, "Workers", fn::makeAuto<core::DispatcherInspector>(_app.dispatcher()));
    core::publishInspector(worker, "Registry", fn::makeAuto<core::RegistryInspector>(_app.dispatcher()));
    core::publishInspector(worker, "Modules", fn::makeAuto<core::ModulesInspector>(_app.modules()));
}

fn::Promise<std::optional<RunOptions>> Program::nextScan()
{
    const bool stays = _options.inspectWeb || _options.inspect;
    while (_nextScans.empty()) {
        // Another start that comes when this program has closed runs the modules itself, when this one has ended.
        if (stays)
            co_await fn::next(_onScan);
        else if (co_await _app.singleInstance().closeUnless([this] { return !_nextScans.empty(); }))
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
        FN_LOG(Info, "{} is to be scanned, too", command.scan->folder.view());
        _nextScans.push_back(std::move(*command.scan));
        _onScan.fire();
    } catch (const fn::Exception& exception) {
        FN_LOG(Info, "Ignoring a command: {}", exception.what());
    }
}

} // namespace media
