// What the application tells the manager: which modules there are, which run, and that all end.
#include "base/exceptions.h"
#include "core/ipc/module_manager/detail/module_manager_state.h"
#include "core/ipc/module_manager/detail/module_parameters_service.h"
#include "core/ipc/registry.h"
#include "foundation/uv/process.h"
#include "foundation/uv/timer.h"
#include <algorithm>
#include <csignal>

namespace ipc {
namespace {

// How long `end()` waits for the processes that it has killed; one that hangs in the kernel is left.
constexpr auto reapTime = fn::Duration::milliseconds(300);
constexpr std::size_t longestName = 64; // Far from the 255 bytes of a file's name, with room for an ending.

void checkName(const fn::String& name)
{
    const auto isAllowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_'
            || c == '.';
    };
    const auto text = name.view();
    if (!text.empty() && text.size() <= longestName && text.front() != '.' && std::ranges::all_of(text, isAllowed))
        return;
    throw fn::RuntimeException(
        fmt::format("\"{}\" can not be a module's name: it names the file modules/NAME.dll, so it has letters, "
                    "digits, '-', '_' and '.', no '.' in front, and no more than {} of them",
            text.substr(0, longestName), longestName));
}

} // namespace

ModuleManager::State::State(Dispatcher& dispatcher, std::vector<ModuleDefinition*>&& definitions)
    : _dispatcher(dispatcher),
      _isDispatcherThere(dispatcher.lifetime().watch()),
      _loop(dispatcher.loop())
{
    for (auto* definition : definitions) _modules.emplace_back(definition, ModuleOptions());
    definitions.clear();
}

ModuleManager::State::~State() = default;

void ModuleManager::State::connectSignals()
{
    const fn::WeakPtr weak(this);
    for (auto& module : _modules) listenTo(module);
    _dispatcher.onWorkerConnected().connect(weak.guard([this](const auto& info) { onWorkerConnected(info); })).detach();
    _dispatcher.onWorkerNotResponding()
        .connect(weak.guard([this](const auto& info) { onWorkerNotResponding(info); }))
        .detach();
    _dispatcher.onWorkerDisconnected()
        .connect(weak.guard([this](const auto& info) { onWorkerDisconnected(info); }))
        .detach();
}

void ModuleManager::State::listenTo(ModuleState& module)
{
    const auto exited = [this, &module](std::int64_t status, int signal) { moduleDidExit(module, status, signal); };
    module.definition->onExit().connect(fn::WeakPtr(this).guard(exited)).detach();
}

void ModuleManager::State::addModule(const fn::String& name, ModuleOptions options)
{
    checkName(name);
    Relaunches::check(options.relaunch);
    if (find(name)) throw fn::RuntimeException("There is a module " + name + " already");
    auto* const definition = ModuleDefinition::create(name, "module_loader", options.inMainProcess, false, false);
    auto& module = _modules.emplace_back(definition, std::move(options));
    listenTo(module);
    if (!module.options.parameters.isNil()) {
        definition->setHasParameters(true);
        if (!std::exchange(_offersParameters, true)) offerParameters();
    }
    if (_hasLaunched && module.isWanted) launchAfter(module, {});
}

/// Once the hub's own worker is connected; modules wait for the object as for any other.
void ModuleManager::State::offerParameters()
{
    if (!_isDispatcherThere) return;
    const fn::WeakPtr weak(this);
    auto offer = weak.guard([this, weak] {
        auto& worker = _dispatcher.worker();
        const auto source = [weak](WorkerId workerId, const fn::String& tag) -> const fn::Value* {
            const auto self = weak.lock();
            const auto* const module = self ? self->stateForWorkerTag(tag) : nullptr;
            return module && module->workerId == workerId ? &module->options.parameters : nullptr;
        };
        worker.registry()->registerObject(fn::makeAuto<ModuleParametersService>(worker, source), 0);
    });
    if (_dispatcher.worker().isConnected())
        offer();
    else
        _dispatcher.onReady().connect(std::move(offer)).detach();
}

ModuleManager::State::ModuleState* ModuleManager::State::find(const fn::String& name)
{
    const auto found =
        std::ranges::find_if(_modules, [&](const ModuleState& module) { return module.definition->name() == name; });
    return found == _modules.end() ? nullptr : &*found;
}

ModuleManager::State::ModuleState& ModuleManager::State::require(const fn::String& name)
{
    if (auto* const module = find(name)) return *module;
    throw fn::RuntimeException("There is no module " + name);
}

void ModuleManager::State::startModule(const fn::String& name)
{
    using enum ModuleStatus::State;
    auto& module = require(name);
    if (module.state == Ended && !module.definition->isSeparateProcess())
        throw fn::RuntimeException("Module " + name + " of the main process has ended and can not be started again");
    module.isWanted = true;
    const bool isNew = module.state == NotLaunched || module.state == Stopped || module.state == GivenUp;
    // While a process is there, its exit decides what follows.
    if (!_hasLaunched || !(isNew || module.relaunchTimer)) return;
    if (isNew) module.relaunches.reset();
    launchAfter(module, {});
}

fn::Promise<void> ModuleManager::State::stopModule(const fn::String& name, fn::Duration graceTime)
{
    using enum ModuleStatus::State;
    auto& module = require(name);
    if (!module.definition->isSeparateProcess())
        throw fn::RuntimeException("Module " + name + " runs in the main process, and can not be stopped");
    module.isWanted = false;
    module.connectionTimer.invalidate();
    module.relaunchTimer.invalidate();
    if (module.state != Stopping && !module.definition->sendSignal(SIGTERM)) {
        module.definition->kill(); // For a definition that knows no signals.
        if (module.state != Stopped) announce(module, Stopped, "Module " + name + " is stopped");
        return fn::Promise<void>::fulfilled();
    }
    const auto stopped = module.stops.emplace_back(fn::Promise<void>::create());
    module.graceTimer =
        fn::uv::Timer::schedule(_loop, graceTime, [&module] { module.definition->sendSignal(SIGKILL); });
    if (module.state != Stopping) enter(module, Stopping, "Module " + name + " is asked to end");
    return stopped;
}

void ModuleManager::State::moduleDidStop(ModuleState& module)
{
    module.graceTimer.invalidate();
    auto stops = std::exchange(module.stops, {});
    announce(module, ModuleStatus::State::Stopped, "Module " + module.definition->name() + " is stopped");
    for (auto& stopped : stops) stopped.fulfill();
    if (!module.isWanted || module.state != ModuleStatus::State::Stopped) return;
    module.relaunches.reset(); // `startModule()` was called meanwhile.
    launchAfter(module, {});
}

void ModuleManager::State::endLaunches()
{
    stop();
    for (auto& module : _modules) {
        if (module.state == ModuleStatus::State::Launching && module.definition->isSeparateProcess())
            module.definition->kill();
    }
}

void ModuleManager::State::killAll()
{
    for (auto& module : _modules) {
        if (module.definition->isSeparateProcess()) module.definition->kill();
    }
}

void ModuleManager::State::end(fn::Duration graceTime)
{
    endLaunches();
    fn::uv::Process::awaitAll(_loop, graceTime);
    killAll();
    fn::uv::Process::awaitAll(_loop, reapTime);
    for (auto& module : _modules) {
        for (const auto& stopped : std::exchange(module.stops, {})) stopped.fulfill();
    }
}

ModuleStatus ModuleManager::State::ModuleState::status() const
{
    return { definition->name(), workerTag, state, message, definition->isSeparateProcess(), options.isOptional,
        launches, timeouts };
}

std::vector<ModuleStatus> ModuleManager::State::modules() const
{
    std::vector<ModuleStatus> statuses;
    for (const auto& module : _modules) statuses.push_back(module.status());
    return statuses;
}

} // namespace ipc
