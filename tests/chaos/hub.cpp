// The main process: a dispatcher, and a module manager for each module that another one has given up. It tells what they say,
// and at SIGUSR1 what it counts.
#include "core/ipc/dispatcher/hub_inspection.h"
#include "core/ipc/module_manager/module_manager.h"
#include "core/services/app_info.h"
#include "foundation/run_loop.h"
#include "foundation/uv/signal_watcher.h"
#include "journal.h"
#include "judge.h"
#include "processes.h"
#include <csignal>
#include <cstring>

namespace chaos {
namespace {

class Hub {
public:
    void run()
    {
        _dispatcher.bind();
        _dispatcher.start();
        const fn::uv::SignalWatcher count(_loop.uvLoop(), SIGUSR1, [this] { tellCounts(); });
        std::vector<ipc::ModuleDefinition*> all;
        for (int module = 1; module <= modules; ++module) all.push_back(define(module));
        supervise(0, std::move(all));
        _loop.run();
    }

private:
    static ipc::ModuleDefinition* define(int module)
    {
        const auto name = fmt::format("{}{}", simulated::moduleName, module);
        auto* const definition = ipc::ModuleDefinition::create(name, "module_loader", false, false, false);
        definition->onExit()
            .connect([name](std::int64_t status, int signal) {
                simulated::tell({ .deed = Deed::Exits, .other = signal, .value = status, .text = name });
            })
            .detach();
        return definition;
    }

    /// Manager 0 begins with all modules; each of the others has the one of its number.
    void supervise(int number, std::vector<ipc::ModuleDefinition*> definitions)
    {
        auto& manager = _managers[number] = std::make_unique<ipc::ModuleManager>(_dispatcher, std::move(definitions));
        simulated::listenTo(*manager);
        manager->onFatalError()
            .connect([this](const fn::String& message) {
                const auto text = message.view();
                const int module = text[text.find(simulated::moduleName) + std::strlen(simulated::moduleName)] - '0';
                _loop.post([this, module] { supervise(module, { define(module) }); }); // Once it has given up.
            })
            .detach();
        _loop.post([this] { _loop.stop(); }); // It launches and is back at once.
        manager->start();
    }

    void tellCounts()
    {
        const ipc::HubInspection inside(_dispatcher);
        simulated::tell({ .deed = Deed::Counts,
            .number = static_cast<int>(inside.objectCount()),
            .other = static_cast<int>(inside.registrationCount()),
            .value = static_cast<std::int64_t>(inside.waiterCount()),
            .object = _dispatcher.workers().size() });
    }

    fn::RunLoop& _loop = fn::RunLoop::defaultLoop();
    ipc::Dispatcher _dispatcher { _loop.uvLoop(), Judge::pongTime };
    std::map<int, std::unique_ptr<ipc::ModuleManager>> _managers;
};

} // namespace

void runHub()
{
    const simulated::Journal journal("hub");
    core::AppInfo::initialize(core::AppInfo::App::Skyfold);
    Hub().run();
}

} // namespace chaos
