#pragma once
#include "base/weak_ptr.h"
#include "core/ipc/module_manager/detail/relaunches.h"
#include "core/ipc/module_manager/module_manager.h"
#include <list>

namespace ipc {

/// What a ModuleManager consists of. The manager can be moved; its State keeps its address.
class ModuleManager::State final : public fn::RefCountedObject {
public:
    struct ModuleState {
        ModuleState(ModuleDefinition* definition, ModuleOptions options)
            : definition(definition),
              options(std::move(options)),
              relaunches(this->options.relaunch),
              isWanted(this->options.isStarted)
        {
        }

        const std::unique_ptr<ModuleDefinition> definition;
        const ModuleOptions options;
        Relaunches relaunches;
        fn::String workerTag; ///< The tag of the latest launch; empty before the first.
        WorkerId workerId = NO_WORKER_ID; ///< Of the latest launch's worker, while that is connected.
        ModuleStatus::State state = ModuleStatus::State::NotLaunched;
        fn::String message; ///< What has happened at last.
        fn::Handle connectionTimer; ///< Runs from a launch until the worker connects or the process exits.
        fn::Handle relaunchTimer;
        fn::Handle graceTimer; ///< Runs while the module is Stopping.
        std::vector<fn::Promise<void>> stops; ///< Who waits for the end of a module that is Stopping.
        std::optional<fn::Duration> connectedSince; ///< When the latest launch has connected, by the loop's clock.
        int timeouts = 0; ///< All launches whose worker did not connect in time.
        int launches = 0; ///< All launches.
        bool hasConnected = false; ///< Whether the worker of any launch has connected, whatever the state is now.
        bool isWanted; ///< Whether the module is to run; false from `stopModule()` to `startModule()`.

        ModuleStatus status() const;
    };

    State(Dispatcher& dispatcher, std::vector<ModuleDefinition*>&& definitions);

    void connectSignals();
    void addModule(const fn::String& name, ModuleOptions options);
    void start();
    void stop() { _stopped = true; }
    void startModule(const fn::String& name);
    fn::Promise<void> stopModule(const fn::String& name, fn::Duration graceTime);
    void endLaunches();
    void killAll();
    void end(fn::Duration graceTime);
    std::vector<ModuleStatus> modules() const;
    ModuleStatus module(const fn::String& name) { return require(name).status(); }

    fn::Signal<fn::String> onFatalError;
    fn::Signal<> onAllModulesConnected;
    fn::Signal<fn::String> onModuleNotResponding;
    fn::Signal<const ModuleStatus&> onModuleState;

private:
    ~State() override;

    void listenTo(ModuleState& module);
    void offerParameters();
    ModuleState* find(const fn::String& name);
    ModuleState& require(const fn::String& name); ///< `fn::RuntimeException` if there is none.
    void launchAll(const ModuleState* except);
    bool launchModule(ModuleState& module);
    void launchAfter(ModuleState& module, fn::Duration delay);
    void onWorkerConnected(const Dispatcher::WorkerInfo& info);
    void onWorkerNotResponding(const Dispatcher::WorkerInfo& info);
    void onWorkerDisconnected(const Dispatcher::WorkerInfo& info);
    void moduleConnectionDidTimeout(ModuleState& module);
    void moduleDidExit(ModuleState& module, std::int64_t status, int signal);
    void moduleDidStop(ModuleState& module);
    std::optional<fn::Duration> delayAfter(ModuleState& module, Relaunches::End end);
    void followEnd(ModuleState& module, std::optional<fn::Duration> delay, const std::string& how, bool isWarning);
    void giveUp(ModuleState& module, const fn::String& message);
    void announce(ModuleState& module, ModuleStatus::State state, const fn::String& message);
    void enter(ModuleState& module, ModuleStatus::State state, fn::String message);
    ModuleState* stateForWorkerTag(const fn::String& tag);

    Dispatcher& _dispatcher; // May be destroyed first; then nothing is launched any more.
    const fn::Lifetime::Watch _isDispatcherThere;
    fn::uv::Loop& _loop;
    std::list<ModuleState> _modules; // In the order given. Timers and signals refer to the elements.
    bool _hasLaunched = false; // The modules that are there at the start have been launched, or are just being so.
    bool _stopped = false;
    bool _offersParameters = false;
};

} // namespace ipc
