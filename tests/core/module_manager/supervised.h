#pragma once
#include "core/application/application.h"
#include "core/simulation/world.h"
#include "foundation/coroutine/next.h"
#include "foundation/coroutine/sleep.h"
#include <csignal>

namespace test {

constexpr const char* moduleName = "test_told";

/// An application with the module test_told, and what its manager says of it.
class Supervised {
public:
    using Story = std::function<fn::Promise<void>(Supervised&)>;

    /// Runs it in this process; gives its exit code.
    int run(const ipc::ModuleOptions& options, const Story& story)
    {
        ipc::Application app(ipc::ApplicationOptions {});
        _app = &app;
        app.addModule("test_none", { .isOptional = true }); // Has no library, and is missed by nobody.
        app.addModule(moduleName, options);
        auto listener = app.onModuleState().connect([&](const ipc::ModuleStatus& status) {
            if (status.name == moduleName) said.emplace_back(status.message.view().substr(7));
        });
        return app.run([&](ipc::Application&) -> fn::Promise<int> {
            co_await story(*this);
            listener.invalidate(); // What follows is the end of the application.
            co_return 0;
        });
    }

    /// Runs it in a simulated world, until all of its processes have ended; gives its exit code.
    std::int64_t simulate(std::uint64_t seed, const ipc::ModuleOptions& options, const Story& story)
    {
        core::simulation::Decisions decisions(seed);
        core::simulation::World world(decisions);
        const auto& application = world.start("application", [&] { return run(options, story); });
        const auto haveEnded = [&] {
            return std::ranges::all_of(world.processes(), [](const auto& process) { return process->isDead(); });
        };
        return world.run(haveEnded, fn::Duration::seconds(3600)) ? application.status() : -1;
    }

    ipc::Application& app() { return *_app; }
    ipc::ModuleManager& manager() { return _app->modules(); }

    /// Waits until the manager says this of the module, behind what was awaited before.
    fn::Promise<void> until(std::string text)
    {
        for (;;) {
            const auto found = std::ranges::find(said.begin() + _awaited, said.end(), moduleName + (" " + text));
            if (found == said.end()) {
                co_await fn::next(_app->onModuleState());
                continue;
            }
            _awaited = found - said.begin() + 1;
            co_return;
        }
    }

    // In the simulated world:
    static core::simulation::World& world() { return core::simulation::Process::current()->world(); }
    static bool isThere() { return world().find(moduleName); } ///< A process of the module.
    static void signal(int signal) { world().signal(*world().find(moduleName), signal); }

    std::vector<std::string> said;

private:
    ipc::Application* _app = nullptr;
    std::ptrdiff_t _awaited = 0;
};

} // namespace test
