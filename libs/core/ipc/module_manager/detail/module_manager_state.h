#pragma once
#include "base/weak_ptr.h"
#include "core/ipc/module_manager/module_manager.h"
#include <list>

namespace ipc {

/// What a ModuleManager consists of. The manager can be moved; its State keeps its address.
class ModuleManager::State final : public fn::RefCountedObject {
public:
    struct ModuleState {
        std::unique_ptr<ModuleDefinition> definition;
        fn::String workerTag; ///< The tag of the latest launch; empty before the first.
        ModuleStatus::State state = ModuleStatus::State::NotLaunched;
        fn::Handle connectionTimer; ///< Runs from a launch until the worker connects or the process exits.
        int timeouts = 0; ///< All launches whose worker did not connect in time.
        int launches = 0; ///< All launches.
        bool hasConnected = false; ///< Whether the worker of any launch has connected, whatever the state is now.
    };

    State(Dispatcher& dispatcher, std::vector<ModuleDefinition*>&& definitions);

    void connectSignals();
    void start();
    void stop() { _stopped = true; }
    void end(fn::Duration graceTime);
    std::vector<ModuleStatus> modules() const;

    fn::Signal<fn::String> onFatalError;
    fn::Signal<> onAllModulesConnected;
    fn::Signal<fn::String> onModuleNotResponding;

private:
    ~State() override;

    void launchAll(const ModuleState* except);
    bool launchModule(ModuleState& module);
    void onWorkerConnected(const Dispatcher::WorkerInfo& info);
    void onWorkerNotResponding(const Dispatcher::WorkerInfo& info);
    void onWorkerDisconnected(const Dispatcher::WorkerInfo& info);
    void moduleConnectionDidTimeout(ModuleState& module);
    void moduleDidExit(ModuleState& module, std::int64_t status, int signal);
    void restart(ModuleState& module);
    ModuleState* stateForWorkerTag(const fn::String& tag);

    Dispatcher& _dispatcher; // May be destroyed first; then nothing is launched any more.
    const fn::Lifetime::Watch _isDispatcherThere;
    fn::uv::Loop& _loop;
    std::list<ModuleState> _modules; // In the order given. Timers and signals refer to the elements.
    bool _stopped = false;
};

} // namespace ipc
