#include "hub.h"
#include "core/app_info.h"
#include "core/ipc/module_manager/module_manager.h"
#include "core/ipc/registry_impl.h"
#include "foundation/run_loop.h"
#include "foundation/uv/signal_watcher.h"
#include "journal.h"
#include "truth.h"
#include <csignal>

namespace chaos {
namespace {

class Hub {
public:
    int run()
    {
        _dispatcher.onWorkerNotResponding()
            .connect([this](const ipc::Dispatcher::WorkerInfo& info) { becomesSilent(info.tag); })
            .detach();
        _dispatcher.bind();
        _dispatcher.start();
        std::vector<ipc::ModuleDefinition*> definitions;
        for (int number = 1; number <= modules; ++number)
            definitions.push_back(define(fmt::format("{}{}", moduleName, number)));
        const fn::uv::SignalWatcher count(_loop.uvLoop(), SIGUSR1, [this] { tellCounts(); });
        supervise(0, std::move(definitions));
        _loop.run();
        return 0;
    }

private:
    ipc::ModuleDefinition* define(const fn::String& name)
    {
        auto* const definition = ipc::ModuleDefinition::create(name, "module_loader", false, false, false);
        definition->onExit()
            .connect([this, name](std::int64_t status, int signal) {
                _witness.tell({ .deed = Deed::Exits, .other = signal, .value = status, .text = name.view() });
            })
            .detach();
        return definition;
    }

    /// Manager 0 begins with all modules, the others have one each, which an earlier one has given up.
    void supervise(int number, std::vector<ipc::ModuleDefinition*>&& definitions)
    {
        auto& manager = _managers[number];
        manager = std::make_unique<ipc::ModuleManager>(_dispatcher, std::move(definitions));
        manager->onFatalError()
            .connect([this](const fn::String& message) {
                _witness.tell({ .deed = Deed::GivesUp, .text = message.view() });
                // Behind the handlers of the one that gives up.
                _loop.post([this, module = moduleIn(message)] {
                    supervise(module, { define(fmt::format("{}{}", moduleName, module)) });
                });
            })
            .detach();
        _loop.post([this] { _loop.stop(); }); // It launches and is back at once.
        manager->start();
    }

    static int moduleIn(const fn::String& message)
    {
        const auto text = message.view();
        return text[text.find(moduleName) + std::string_view(moduleName).size()] - '0';
    }

    void becomesSilent(const fn::String& tag)
    {
        for (const auto& [number, manager] : _managers) {
            for (const auto& module : manager->modules()) {
                if (module.workerTag == tag) _witness.tell({ .deed = Deed::FindsSilent, .text = module.name.view() });
            }
        }
    }

    void tellCounts()
    {
        const auto& registry = *_dispatcher.registryImpl();
        _witness.tell({ .deed = Deed::Counts,
            .number = static_cast<int>(_dispatcher.usageCounts().objectCount()),
            .other = static_cast<int>(registry.registrationCount()),
            .value = static_cast<std::int64_t>(registry.waiterCount()),
            .object = _dispatcher.workers().size() });
    }

    JournalWitness _witness { "hub" };
    fn::RunLoop& _loop = fn::RunLoop::defaultLoop();
    ipc::Dispatcher _dispatcher { _loop.uvLoop(), simulated::Truth::pongTime };
    std::map<int, std::unique_ptr<ipc::ModuleManager>> _managers;
};

} // namespace

int runHub()
{
    core::AppInfo::initialize(core::AppInfo::App::Skyfold);
    return Hub().run();
}

} // namespace chaos
