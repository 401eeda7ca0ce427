#include "core/ipc/module_manager/detail/module_manager_state.h"
#include "foundation/logging/logging.h"
#include "foundation/system/uuid.h"
#include "foundation/uv/process.h"
#include "foundation/uv/timer.h"
#include <algorithm>

#define LOG(priority, ...) \
    FN_LOG_TO(category(), priority, fn::logging::Tag(), "libs/core/ipc/module_manager", __VA_ARGS__)

namespace ipc {
namespace {

constexpr auto connectionTimeout = fn::Duration::seconds(30);
constexpr auto relaunchDelay = fn::Duration::seconds(1);
// How long `end()` waits for the processes that it has killed; one that hangs in the kernel is left.
constexpr auto reapTime = fn::Duration::milliseconds(300);
constexpr int toleratedTimeouts = 1;
constexpr int toleratedEarlyExits = 1; // Launches of a module whose process may exit before its worker connects.

constexpr auto& category = fn::logging::category<"ipc.moduleManager">;

/// "exit code 3", "signal SIGSEGV".
std::string describeExit(std::int64_t status, int signal)
{
    if (signal == 0) return fmt::format("exit code {}", status);
    const auto* const name = sigabbrev_np(signal);
    return name ? fmt::format("signal SIG{}", name) : fmt::format("signal {}", signal);
}

} // namespace

ModuleManager::State::State(Dispatcher& dispatcher, std::vector<ModuleDefinition*>&& definitions)
    : _dispatcher(dispatcher),
      _isDispatcherThere(dispatcher.lifetime().watch()),
      _loop(dispatcher.loop())
{
    for (auto* definition : definitions) _modules.emplace_back().definition.reset(definition);
    definitions.clear();
}

ModuleManager::State::~State() = default;

void ModuleManager::State::connectSignals()
{
    const fn::WeakPtr weak(this);
    for (auto& module : _modules) {
        module.definition->onExit()
            .connect(
                weak.guard([this, &module](std::int64_t status, int signal) { moduleDidExit(module, status, signal); }))
            .detach();
    }
    _dispatcher.onWorkerConnected().connect(weak.guard([this](const auto& info) { onWorkerConnected(info); })).detach();
    _dispatcher.onWorkerNotResponding()
        .connect(weak.guard([this](const auto& info) { onWorkerNotResponding(info); }))
        .detach();
    _dispatcher.onWorkerDisconnected()
        .connect(weak.guard([this](const auto& info) { onWorkerDisconnected(info); }))
        .detach();
}

// --- Launching

void ModuleManager::State::start()
{
    const auto mainLoopModule =
        std::ranges::find_if(_modules, [](const ModuleState& module) { return module.definition->runsMainLoop(); });
    auto* const except = mainLoopModule == _modules.end() ? nullptr : &*mainLoopModule;
    auto& mainLoop = fn::RunLoop::defaultLoop();
    mainLoop.post(fn::WeakPtr(this).guard([this, except] {
        if (_isDispatcherThere) launchAll(except);
    }));
    if (except && !_stopped)
        launchModule(*except); // Its entry point runs the loop.
    else
        mainLoop.run(0);
}

void ModuleManager::State::launchAll(const ModuleState* except)
{
    for (auto& module : _modules) {
        if (&module == except) continue;
        if (_stopped) return;
        if (!launchModule(module)) {
            LOG(2, "Aborting launch");
            return;
        }
    }
}

bool ModuleManager::State::launchModule(ModuleState& module)
{
    module.workerTag = fn::UUIDGenerator::defaultGenerator().createOne().toString();
    ++module.launches;
    LOG(4, "Launching module {} ({}) (attempt {})", module.definition->name(), module.workerTag, module.launches);
    module.state = ModuleStatus::State::Launching;
    // Before the launch, which returns only at the end of the application if the module runs the main loop.
    module.connectionTimer =
        fn::uv::Timer::schedule(_loop, connectionTimeout, [this, &module] { moduleConnectionDidTimeout(module); });
    try {
        module.definition->launch(_dispatcher, module.workerTag);
        return true;
    } catch (const std::exception& exception) {
        const fn::String message =
            fmt::format("Failed to start module {}:\n{}", module.definition->name(), exception.what());
        module.connectionTimer.invalidate();
        module.state = ModuleStatus::State::Ended;
        LOG(2, "{}", message);
        onFatalError.fire(message);
        return false;
    }
}

void ModuleManager::State::restart(ModuleState& module)
{
    if (_stopped) return;
    const auto relaunch = [this, &module] {
        // After a `stop()` a new process would outlive the application.
        if (!_stopped && _isDispatcherThere) launchModule(module);
    };
    fn::uv::Timer::schedule(_loop, relaunchDelay, fn::WeakPtr(this).guard(relaunch)).detach();
}

void ModuleManager::State::end(fn::Duration graceTime)
{
    stop();
    const auto killAll = [this](auto condition) {
        for (auto& module : _modules) {
            if (module.definition->isSeparateProcess() && condition(module)) module.definition->kill();
        }
    };
    // Modules that are still launching have nothing to end, and would complain that they find no hub.
    killAll([](const ModuleState& module) { return module.state == ModuleStatus::State::Launching; });
    fn::uv::Process::awaitAll(_loop, graceTime);
    killAll([](const ModuleState&) { return true; });
    fn::uv::Process::awaitAll(_loop, reapTime);
}

std::vector<ModuleStatus> ModuleManager::State::modules() const
{
    std::vector<ModuleStatus> statuses;
    for (const auto& module : _modules) {
        auto& definition = *module.definition;
        statuses.push_back({ definition.name(), module.workerTag, module.state, definition.isSeparateProcess(),
            module.launches, module.timeouts });
    }
    return statuses;
}

// --- What happens to modules

ModuleManager::State::ModuleState* ModuleManager::State::stateForWorkerTag(const fn::String& tag)
{
    if (tag.empty()) return nullptr; // Workers that no manager launched have it, and modules before their launch.
    const auto found =
        std::ranges::find_if(_modules, [&](const ModuleState& module) { return module.workerTag == tag; });
    return found == _modules.end() ? nullptr : &*found;
}

void ModuleManager::State::onWorkerConnected(const Dispatcher::WorkerInfo& info)
{
    auto* const module = stateForWorkerTag(info.tag);
    if (!module) {
        LOG(5, "Received Connected notification for unmanaged module {}", info);
        return;
    }
    LOG(5, "Module {} has connected", info);
    module->connectionTimer.invalidate();
    module->state = ModuleStatus::State::Running;
    // Once for ever: the signal fires although another module is just being launched again.
    module->hasConnected = true;
    if (std::ranges::all_of(_modules, &ModuleState::hasConnected)) onAllModulesConnected.fire();
}

void ModuleManager::State::onWorkerNotResponding(const Dispatcher::WorkerInfo& info)
{
    auto* const module = stateForWorkerTag(info.tag);
    if (!module) {
        LOG(2, "Received Not Responding notification for unmanaged workerId {}", info);
        return;
    }
    const auto name = module->definition->name();
    onModuleNotResponding.fire(name);
    if (!module->definition->isSeparateProcess()) {
        LOG(2, "Module {} stopped responding but can not be terminated because it is in-process", name);
        return;
    }
    LOG(2, "Module {} stopped responding and will be terminated", name);
    module->definition->kill();
    restart(*module);
}

void ModuleManager::State::onWorkerDisconnected(const Dispatcher::WorkerInfo& info)
{
    if (auto* const module = stateForWorkerTag(info.tag)) module->state = ModuleStatus::State::Ended;
}

void ModuleManager::State::moduleConnectionDidTimeout(ModuleState& module)
{
    const fn::AutoPtr self(this);
    const auto name = module.definition->name();
    module.state = ModuleStatus::State::Overdue;
    if (++module.timeouts <= toleratedTimeouts) {
        LOG(2, "Module {} timed out at launch, will attempt to restart", name);
        module.definition->kill();
        restart(module);
        return;
    }
    LOG(2, "Module {} timed out at launch, giving up", name);
    module.definition->kill();
    onFatalError.fire(fmt::format("Module {} failed to connect", name));
}

void ModuleManager::State::moduleDidExit(ModuleState& module, std::int64_t status, int signal)
{
    const auto before = std::exchange(module.state, ModuleStatus::State::Ended);
    const bool wasConnecting = before == ModuleStatus::State::Launching || before == ModuleStatus::State::Overdue;
    module.connectionTimer.invalidate();
    const auto name = module.definition->name();
    if (wasConnecting && module.launches > toleratedEarlyExits) {
        const fn::String message = fmt::format(
            "Module {} did exit before connection was established (status: {}, signal {})", name, status, signal);
        LOG(2, "{}", message);
        onFatalError.fire(message);
        return;
    }
    LOG(4, "Module {} did exit (status: {}, signal {})", name, status, signal);
    if (!_stopped && (status != 0 || signal != 0)) {
        LOG(2, "Module {} has ended unexpectedly ({}) and will be started again in a second", name,
            describeExit(status, signal));
    }
    restart(module);
}

} // namespace ipc
