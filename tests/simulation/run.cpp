#include "run.h"
#include "core/app_info.h"
#include "core/ipc/module_manager/module_manager.h"
#include "foundation/logging/category_manager.h"
#include "foundation/uv/signal_watcher.h"
#include "world_truth.h"
#include <algorithm>
#include <csignal>

namespace simulated {
namespace {

using core::simulation::Options;

constexpr auto rest = fn::Duration::seconds(45); // Longer than any launch, look-up, freeze or answer takes.
constexpr auto idleRest = fn::Duration::seconds(2000); // Longer than any module is idle.

/// Everything that is logged by those who still count.
class TruthSink final : public fn::logging::Sink {
    int threshold(const fn::logging::Category&) const override { return 4; }
    void logMessage(const fn::logging::Category& category, const fn::logging::Message& message) override
    {
        const auto line = fmt::format("{}: {}", category.name(), message.text);
        Witness::current().tell({ .deed = Deed::Logs, .number = message.priority, .text = line });
    }
};

/// The truth's ears, for one run.
class Ears {
public:
    Ears() { fn::logging::CategoryManager::instance().addSink(_sink); }
    Ears(const Ears&) = delete;
    ~Ears() { fn::logging::CategoryManager::instance().removeSink(_sink); }

private:
    fn::AutoPtr<fn::logging::Sink> _sink = fn::makeAuto<TruthSink>();
};

int mainProgram(WorldTruth& truth, std::uint32_t modules)
{
    core::AppInfo::initialize(core::AppInfo::App::Skyfold);
    ipc::Dispatcher dispatcher(fn::RunLoop::defaultLoop().uvLoop(), WorldTruth::pongTime);
    truth.hub = &dispatcher;
    dispatcher.bind();
    dispatcher.start();
    std::vector<ipc::ModuleDefinition*> definitions;
    for (std::uint32_t i = 1; i <= modules; ++i) {
        const auto name = fmt::format("simulated_module_{}", i);
        truth.expects(name);
        definitions.push_back(ipc::ModuleDefinition::create(name, "module_loader", false, false, false));
    }
    ipc::ModuleManager manager(dispatcher, std::move(definitions));
    manager.onFatalError()
        .connect([&](const fn::String& message) { truth.tell({ .deed = Deed::GivesUp, .text = message.view() }); })
        .detach();
    manager.onModuleNotResponding()
        .connect([&](const fn::String& name) { truth.tell({ .deed = Deed::FindsSilent, .text = name.view() }); })
        .detach();
    const fn::uv::SignalWatcher end(fn::RunLoop::defaultLoop().uvLoop(), SIGTERM, [&] {
        manager.stop();
        dispatcher.stop(fn::Duration::seconds(1), {});
    });
    manager.start();
    truth.hub = nullptr;
    return 0;
}

/// How rough this run is: each kind of fault is absent from half of them.
Options roughness(core::simulation::Decisions& decisions)
{
    const auto rate = [&](std::uint32_t most) {
        return decisions.choose(Choice::Fault, 2) == 0 ? 0 : decisions.choose(Choice::Fault, most);
    };
    Options options;
    options.cuts = rate(500'000);
    options.socketBytes = std::size_t(1) << (17 - decisions.choose(Choice::Bytes, 10));
    options.deaths = rate(6'000);
    options.freezes = rate(6'000);
    options.longestFreeze = fn::Duration::milliseconds(20 << decisions.choose(Choice::Fault, 10));
    options.failingLaunches = rate(300'000);
    options.hangingLaunches = rate(300'000);
    options.fullQueues = rate(500'000);
    return options;
}

void calm(Options& options)
{
    options.deaths = options.freezes = options.failingLaunches = options.hangingLaunches = options.fullQueues = 0;
}

void checkEnd(World& world, WorldTruth& truth, Process& main)
{
    truth.isEnding = true;
    if (!main.isDead()) world.signal(main, SIGTERM);
    const auto allEnded = [&] {
        return std::ranges::all_of(
            world.processes(), [](const auto& process) { return process->isDead() || process->isHanging(); });
    };
    if (!world.run(allEnded, fn::Duration::seconds(10))) truth.violated("somebody does not end with the application");
    if (main.signal() == 0 && main.status() != 0) truth.violated("the main process did not end cleanly");
}

} // namespace

Report runOnce(core::simulation::Decisions& decisions, bool tells)
{
    Report report;
    World world(decisions, roughness(decisions));
    WorldTruth truth(world, tells);
    const Ears ears;
    world.setHarmObserver(
        [&](const fn::String& name, const char* harm, fn::Duration time) { truth.harmed(name, harm, time); });
    const auto modules = decisions.choose(Choice::Load, 4) + 1;
    truth.modulesEndIdle = decisions.choose(Choice::Load, 16) == 15;
    const auto time = fn::Duration::milliseconds(500 << decisions.choose(Choice::Load, 5));
    auto& main = world.start("skyfold", [&truth, modules] { return mainProgram(truth, modules); });
    if (decisions.choose(Choice::Fault, 8) == 7) {
        world.runFor(fn::Duration::milliseconds(decisions.choose(Choice::Fault, 2000)));
        truth.harmed(main.name(), "is killed", {});
        truth.isEnding = true; // The modules of a dead hub end.
        world.signal(main, SIGKILL);
    }
    world.runFor(time);
    truth.rest();
    calm(world.options());
    world.runFor(truth.modulesEndIdle ? idleRest : rest);
    truth.checkAtRest();
    checkEnd(world, truth, main);
    report.violations = truth.violations();
    report.hash = world.traceHash();
    report.steps = world.steps();
    report.seconds = world.now().totalSeconds();
    return report;
}

} // namespace simulated
