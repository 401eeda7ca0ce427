// The main process: a dispatcher, and a module manager for each module that another one has given up. It tells what they say,
// and at SIGUSR1 what it counts.
#include "core/app_info.h"
#include "core/ipc/module_manager/module_manager.h"
#include "core/ipc/registry_impl.h"
#include "foundation/run_loop.h"
#include "foundation/uv/signal_watcher.h"
#include "journal.h"
#include "truth.h"
#include <csignal>
#include <cstring>
#include <numeric>

namespace {

using chaos::Deed;

class Hub {
public:
    void run()
    {
        _dispatcher.bind();
        _dispatcher.start();
        const fn::uv::SignalWatcher count(_loop.uvLoop(), SIGUSR1, [this] { tellCounts(); });
        std::vector<int> all(chaos::modules);
        std::iota(all.begin(), all.end(), 1);
        supervise(0, all);
        _loop.run();
    }

private:
    ipc::ModuleDefinition* define(int module)
    {
        const auto name = fmt::format("{}{}", chaos::moduleName, module);
        auto* const definition = ipc::ModuleDefinition::create(name, "module_loader", false, false, false);
        definition->onExit()
            .connect([this, name](std::int64_t status, int signal) {
                _journal.tell({ .deed = Deed::Exits, .other = signal, .value = status, .text = name });
            })
            .detach();
        return definition;
    }

    /// Manager 0 begins with all modules; each of the others has the one of its number.
    void supervise(int number, const std::vector<int>& modules)
    {
        std::vector<ipc::ModuleDefinition*> definitions;
        for (const int module : modules) definitions.push_back(define(module));
        auto& manager = _managers[number] = std::make_unique<ipc::ModuleManager>(_dispatcher, std::move(definitions));
        manager->onModuleNotResponding()
            .connect(
                [this](const fn::String& name) { _journal.tell({ .deed = Deed::FindsSilent, .text = name.view() }); })
            .detach();
        manager->onFatalError()
            .connect([this](const fn::String& message) {
                const auto text = message.view();
                _journal.tell({ .deed = Deed::GivesUp, .text = text });
                const int module = text[text.find(chaos::moduleName) + std::strlen(chaos::moduleName)] - '0';
                _loop.post([this, module] { supervise(module, { module }); }); // Once it has given up.
            })
            .detach();
        _loop.post([this] { _loop.stop(); }); // It launches and is back at once.
        manager->start();
    }

    void tellCounts()
    {
        const auto& registry = *_dispatcher.registryImpl();
        _journal.tell({ .deed = Deed::Counts,
            .number = static_cast<int>(_dispatcher.usageCounts().objectCount()),
            .other = static_cast<int>(registry.registrationCount()),
            .value = static_cast<std::int64_t>(registry.waiterCount()),
            .object = _dispatcher.workers().size() });
    }

    chaos::Journal _journal { "hub" };
    fn::RunLoop& _loop = fn::RunLoop::defaultLoop();
    ipc::Dispatcher _dispatcher { _loop.uvLoop(), simulated::Truth::pongTime };
    std::map<int, std::unique_ptr<ipc::ModuleManager>> _managers;
};

} // namespace

int main()
{
    core::AppInfo::initialize(core::AppInfo::App::Skyfold);
    Hub().run();
    return 0;
}
