#include "core/ipc/module_manager/module_manager.h"
#include "core/ipc/module_manager/detail/module_manager_state.h"

namespace ipc {

ModuleManager::ModuleManager(Dispatcher& dispatcher, std::vector<ModuleDefinition*>&& definitions)
    : _state(fn::makeAuto<State>(dispatcher, std::move(definitions)))
{
    _state->connectSignals();
}

ModuleManager::ModuleManager(ModuleManager&&) noexcept = default;
ModuleManager::~ModuleManager() = default;

void ModuleManager::addModule(const fn::String& name, ModuleOptions options)
{
    _state->addModule(name, std::move(options));
}

void ModuleManager::start()
{
    const auto state = _state; // The main loop module may end this manager.
    state->start();
}

void ModuleManager::stop() { _state->stop(); }

void ModuleManager::startModule(const fn::String& name) { _state->startModule(name); }

fn::Promise<void> ModuleManager::stopModule(const fn::String& name, fn::Duration graceTime)
{
    const auto state = _state;
    try {
        return state->stopModule(name, graceTime);
    } catch (...) {
        return fn::Promise<void>::rejected(std::current_exception());
    }
}

void ModuleManager::endLaunches() { _state->endLaunches(); }

void ModuleManager::killAll() { _state->killAll(); }

void ModuleManager::end(fn::Duration graceTime)
{
    const auto state = _state;
    state->end(graceTime);
}

std::vector<ModuleStatus> ModuleManager::modules() const { return _state->modules(); }
ModuleStatus ModuleManager::module(const fn::String& name) const { return _state->module(name); }

std::function<std::vector<ModuleStatus>()> ModuleManager::modulesSource() const
{
    return [weak = fn::WeakPtr(_state)] {
        const auto state = weak.lock();
        return state ? state->modules() : std::vector<ModuleStatus>();
    };
}

fn::Signal<fn::String>& ModuleManager::onFatalError() { return _state->onFatalError; }
fn::Signal<>& ModuleManager::onAllModulesConnected() { return _state->onAllModulesConnected; }
fn::Signal<fn::String>& ModuleManager::onModuleNotResponding() { return _state->onModuleNotResponding; }
fn::Signal<const ModuleStatus&>& ModuleManager::onModuleState() { return _state->onModuleState; }

} // namespace ipc
