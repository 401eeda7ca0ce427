#include "core/ipc/module_manager/detail/module_manager_state.h"
#include "foundation/logging/logging.h"
#include "foundation/system/uuid.h"
#include "foundation/time/clock.h"
#include "foundation/uv/timer.h"
#include <algorithm>
#include <cctype>
#include <cstring>

namespace ipc {
namespace {

constexpr auto connectionTimeout = fn::Duration::seconds(30);

FN_LOG_CATEGORY("ipc.moduleManager");

/// "ended with exit code 3", "was ended by signal 9 (killed)".
std::string describeExit(std::int64_t status, int signal)
{
    if (signal == 0) return fmt::format("ended with exit code {}", status);
    const auto* const description = sigdescr_np(signal);
    if (!description) return fmt::format("was ended by signal {}", signal);
    return fmt::format("was ended by signal {} ({}{})", signal,
        static_cast<char>(std::tolower(static_cast<unsigned char>(*description))), description + 1);
}

} // namespace

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
    const fn::AutoPtr self(this);
    _hasLaunched = true;
    for (auto& module : _modules) {
        // A listener may have launched it already, and stopped it again.
        if (&module == except || !module.isWanted || module.launches > 0) continue;
        if (_stopped) return;
        if (!launchModule(module)) {
            FN_LOG(Warning, "Aborting launch");
            return;
        }
    }
}

/// Whether the launch was started, or is not missed.
bool ModuleManager::State::launchModule(ModuleState& module)
{
    const fn::AutoPtr self(this);
    const auto name = module.definition->name();
    const auto tag = fn::UUIDGenerator::defaultGenerator().createOne().toString();
    module.workerTag = tag;
    module.workerId = NO_WORKER_ID;
    module.connectedSince.reset();
    ++module.launches;
    module.relaunches.launched();
    module.relaunchTimer.invalidate();
    FN_LOG(Info, "Launching module {} ({}) (attempt {})", name, tag, module.launches);
    // Before the launch, which returns only at the end of the application if the module runs the main loop.
    module.connectionTimer =
        fn::uv::Timer::schedule(_loop, connectionTimeout, [this, &module] { moduleConnectionDidTimeout(module); });
    enter(module, ModuleStatus::State::Launching,
        fmt::format("Module {} is starting (launch {})", name, module.launches));
    if (module.workerTag != tag || module.state != ModuleStatus::State::Launching)
        return true; // A listener has stopped it.
    try {
        module.definition->launch(_dispatcher, tag);
        return true;
    } catch (const std::exception& exception) {
        const fn::String message = fmt::format("Failed to start module {}:\n{}", name, exception.what());
        module.connectionTimer.invalidate();
        FN_LOG(Warning, "{}", message);
        giveUp(module, message);
        return module.options.isOptional;
    }
}

void ModuleManager::State::launchAfter(ModuleState& module, fn::Duration delay)
{
    if (_stopped) return;
    module.relaunchTimer = fn::uv::Timer::schedule(_loop, delay, [this, &module] {
        // After a `stop()` a new process would outlive the application.
        if (!_stopped && _isDispatcherThere) launchModule(module);
    });
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
    const fn::AutoPtr self(this);
    auto* const module = stateForWorkerTag(info.tag);
    if (!module) {
        FN_LOG(Debug, "Received Connected notification for unmanaged module {}", info);
        return;
    }
    FN_LOG(Debug, "Module {} has connected", info);
    module->connectionTimer.invalidate();
    // Once for ever: the signal fires although another module is just being launched again.
    module->hasConnected = true;
    // A HELLO may be read when the process has ended already, or has been asked to.
    // A second worker may say the tag, which is no secret of the user's processes; it is not the module's.
    if (module->state == ModuleStatus::State::Launching) {
        module->workerId = info.workerId;
        module->connectedSince = _loop.clock().monotonic();
        const auto name = module->definition->name();
        announce(*module, ModuleStatus::State::Running,
            module->launches == 1 ? fmt::format("Module {} is ready", name)
                                  : fmt::format("Module {} is ready again (launch {})", name, module->launches));
    }
    const auto isMissing = [](const ModuleState& other) {
        return !other.hasConnected && other.isWanted && !other.options.isOptional;
    };
    if (std::ranges::none_of(_modules, isMissing)) onAllModulesConnected.fire();
}

void ModuleManager::State::onWorkerNotResponding(const Dispatcher::WorkerInfo& info)
{
    const fn::AutoPtr self(this);
    auto* const module = stateForWorkerTag(info.tag);
    if (!module) {
        FN_LOG(Warning, "Received Not Responding notification for unmanaged workerId {}", info);
        return;
    }
    const auto isToEnd = [&] { return !module->isWanted || module->state == ModuleStatus::State::Stopping; };
    if (isToEnd()) return; // Its grace time bounds that.
    const auto name = module->definition->name();
    onModuleNotResponding.fire(name);
    if (isToEnd()) return; // A listener has stopped it.
    if (!module->definition->isSeparateProcess()) {
        FN_LOG(Warning, "Module {} stopped responding but can not be terminated because it is in-process", name);
        return;
    }
    FN_LOG(Warning, "Module {} stopped responding and will be terminated", name);
    module->definition->kill();
    if (module->state != ModuleStatus::State::Running)
        return; // It has ended already, and what follows has been decided.
    followEnd(*module, delayAfter(*module, Relaunches::End::Silent), "stopped responding", false);
}

void ModuleManager::State::onWorkerDisconnected(const Dispatcher::WorkerInfo& info)
{
    auto* const module = stateForWorkerTag(info.tag);
    if (!module || module->workerId != info.workerId) return;
    module->workerId = NO_WORKER_ID;
    if (module->state != ModuleStatus::State::Running) return;
    if (module->definition->isSeparateProcess())
        module->state = ModuleStatus::State::Ended; // The exit follows, and tells how.
    else
        enter(
            *module, ModuleStatus::State::Ended, fmt::format("Module {} has disconnected", module->definition->name()));
}

void ModuleManager::State::moduleConnectionDidTimeout(ModuleState& module)
{
    const fn::AutoPtr self(this);
    const auto name = module.definition->name();
    ++module.timeouts;
    const auto delay = delayAfter(module, Relaunches::End::TimedOut);
    if (!delay) {
        FN_LOG(Warning, "Module {} timed out at launch, giving up", name);
        module.definition->kill();
        giveUp(module, fmt::format("Module {} failed to connect", name));
        return;
    }
    FN_LOG(Warning, "Module {} timed out at launch, will attempt to restart", name);
    module.definition->kill();
    launchAfter(module, *delay);
    enter(module, ModuleStatus::State::Overdue,
        fmt::format("Module {} timed out at launch; starting it again in {}", name, *delay));
}

void ModuleManager::State::moduleDidExit(ModuleState& module, std::int64_t status, int signal)
{
    const fn::AutoPtr self(this);
    const auto before = std::exchange(module.state, ModuleStatus::State::Ended);
    const bool wasConnecting = before == ModuleStatus::State::Launching || before == ModuleStatus::State::Overdue;
    module.connectionTimer.invalidate();
    const auto name = module.definition->name();
    if (before == ModuleStatus::State::Stopping) {
        FN_LOG(Info, "Module {} did exit (status: {}, signal {})", name, status, signal);
        moduleDidStop(module);
        return;
    }
    const auto delay = delayAfter(module, wasConnecting ? Relaunches::End::ExitedEarly : Relaunches::End::Exited);
    if (wasConnecting && !delay && !module.options.relaunch.limit) {
        const fn::String message = fmt::format(
            "Module {} did exit before connection was established (status: {}, signal {})", name, status, signal);
        FN_LOG(Warning, "{}", message);
        giveUp(module, message);
        return;
    }
    FN_LOG(Info, "Module {} did exit (status: {}, signal {})", name, status, signal);
    followEnd(module, delay, describeExit(status, signal), status != 0 || signal != 0);
}

/// By the module's policy: none to give it up.
std::optional<fn::Duration> ModuleManager::State::delayAfter(ModuleState& module, Relaunches::End end)
{
    const auto now = _loop.clock().monotonic();
    return module.relaunches.after(end, now, now - module.connectedSince.value_or(now));
}

/// Launches the module again or gives it up. `how` it has ended is worth a warning, or no line of its own.
void ModuleManager::State::followEnd(
    ModuleState& module, std::optional<fn::Duration> delay, const std::string& how, bool isWarning)
{
    const auto said = fmt::format("Module {} {}", module.definition->name(), how);
    if (_stopped) return enter(module, ModuleStatus::State::Ended, said);
    if (!delay) {
        const fn::String message = fmt::format("{}; it is not started again{}", said, module.relaunches.limitText());
        FN_LOG(Warning, "{}", message);
        giveUp(module, message);
        return;
    }
    const fn::String message = fmt::format("{}; starting it again in {}", said, *delay);
    if (isWarning) FN_LOG(Warning, "{}", message);
    launchAfter(module, *delay);
    enter(module, ModuleStatus::State::Ended, message);
}

void ModuleManager::State::giveUp(ModuleState& module, const fn::String& message)
{
    enter(module, ModuleStatus::State::GivenUp, message);
    if (!module.options.isOptional) onFatalError.fire(message);
}

/// Enters the state, and says so in the log.
void ModuleManager::State::announce(ModuleState& module, ModuleStatus::State state, const fn::String& message)
{
    FN_LOG(Info, "{}", message);
    enter(module, state, message);
}

/// Whoever calls it holds this State, and the listeners may have changed the module.
void ModuleManager::State::enter(ModuleState& module, ModuleStatus::State state, fn::String message)
{
    module.state = state;
    module.message = std::move(message);
    onModuleState.fire(module.status());
}

} // namespace ipc
