#include "run.h"
#include "core/app_info.h"
#include "core/ipc/module_manager/module_manager.h"
#include "core/ipc/run_module.h"
#include "foundation/logging/category_manager.h"
#include "foundation/uv/signal_watcher.h"
#include "world_truth.h"
#include <algorithm>
#include <csignal>

namespace simulated {
namespace {

using core::simulation::Options;

constexpr auto rest = fn::Duration::seconds(50); // Longer than any launch, look-up, freeze or answer takes.
constexpr auto stopDelay = fn::Duration::seconds(3);
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

/// What the main program is like in this run.
struct Program {
    std::uint32_t modules; // In processes of their own.
    bool hasOwnModule; // One more in the main process.
    ipc::HubLimits limits;
};

int mainProgram(WorldTruth& truth, const Program& program)
{
    core::AppInfo::initialize(core::AppInfo::App::Skyfold);
    auto& loop = fn::RunLoop::defaultLoop().uvLoop();
    ipc::Dispatcher dispatcher(loop, WorldTruth::pongTime, program.limits);
    truth.hub = &dispatcher;
    dispatcher.bind();
    dispatcher.start();
    std::vector<ipc::ModuleDefinition*> definitions;
    const auto addModule = [&](std::uint32_t number, bool isInProcess) {
        const auto name = fmt::format("simulated_module_{}", number);
        if (!isInProcess) truth.expects(name);
        definitions.push_back(ipc::ModuleDefinition::create(name, "module_loader", isInProcess, false, false));
    };
    for (std::uint32_t i = 1; i <= program.modules; ++i) addModule(i, false);
    if (program.hasOwnModule) addModule(5, true);
    ipc::ModuleManager manager(dispatcher, std::move(definitions));
    manager.onFatalError()
        .connect([&](const fn::String& message) { truth.tell({ .deed = Deed::GivesUp, .text = message.view() }); })
        .detach();
    manager.onModuleNotResponding()
        .connect([&](const fn::String& name) { truth.tell({ .deed = Deed::FindsSilent, .text = name.view() }); })
        .detach();
    const auto end = [&] {
        manager.stop();
        truth.stopped();
        dispatcher.stop(stopDelay, [&] { truth.checkQuit(); });
    };
    const fn::uv::SignalWatcher terminated(loop, SIGTERM, end);
    const fn::uv::SignalWatcher interrupted(loop, SIGINT, end);
    manager.start();
    truth.hub = nullptr;
    ipc::endModules();
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
    options.failingAllocations = rate(20'000);
    options.failingLaunches = rate(300'000);
    options.hangingLaunches = rate(300'000);
    options.fullQueues = rate(500'000);
    return options;
}

void calm(Options& options)
{
    options.deaths = options.freezes = options.failingAllocations = options.failingLaunches = options.hangingLaunches =
        options.fullQueues = 0;
}

ipc::HubLimits someLimits(core::simulation::Decisions& decisions)
{
    ipc::HubLimits limits;
    if (decisions.choose(Choice::Fault, 2) == 1) limits.workerIds = 8;
    if (decisions.choose(Choice::Fault, 2) == 1) {
        limits.pausingQueueBytes = std::size_t(1024) << decisions.choose(Choice::Fault, 6);
        limits.stalledQueueBytes = limits.pausingQueueBytes / 4;
        limits.queueBytes = 1024 * limits.pausingQueueBytes;
    }
    return limits;
}

/// What happens to the main process once, if anything does.
void strike(World& world, WorldTruth& truth, Process& main)
{
    auto& decisions = world.decisions();
    const auto kind = decisions.choose(Choice::Fault, 8);
    if (kind < 5) return;
    world.runFor(fn::Duration::milliseconds(decisions.choose(Choice::Fault, 3000)));
    if (kind == 5) {
        const auto time = fn::Duration::milliseconds(decisions.choose(Choice::Fault, 10'000));
        truth.expectLateNotices(time + Truth::pongTime); // Nobody is noticed meanwhile, and all are given more time.
        return world.freeze(main, time);
    }
    truth.isEnding = true; // The modules of a dead hub end.
    if (kind == 7) truth.harmed(main.name(), "is killed", {});
    world.signal(main, kind == 7 ? SIGKILL : decisions.choose(Choice::Fault, 2) == 0 ? SIGINT : SIGTERM);
}

void checkEnd(World& world, WorldTruth& truth, Process& main)
{
    if (!main.isDead() && !std::exchange(truth.isEnding, true)) world.signal(main, SIGTERM);
    const auto allEnded = [&] {
        return std::ranges::all_of(
            world.processes(), [](const auto& process) { return process->isDead() || process->isHanging(); });
    };
    if (!world.run(allEnded, fn::Duration::seconds(10))) truth.violated("somebody does not end with the application");
    if (main.signal() == 0 && main.status() != 0) truth.violated("the main process did not end cleanly");
}

} // namespace

core::simulation::Report runOnce(core::simulation::Decisions& decisions, bool tells)
{
    core::simulation::Report report;
    World world(decisions, roughness(decisions));
    WorldTruth truth(world, tells);
    const Ears ears;
    world.setHarmObserver(
        [&](const fn::String& name, const char* harm, fn::Duration time) { truth.harmed(name, harm, time); });
    const Program program { decisions.choose(Choice::Load, 4) + 1, decisions.choose(Choice::Load, 4) == 3,
        someLimits(decisions) };
    if (program.limits.pausingQueueBytes < ipc::limits::pausingQueueBytes)
        truth.expectLateNotices(); // Whoever waits for a slow receiver is not waited for.
    truth.modulesEndIdle = decisions.choose(Choice::Load, 16) == 15;
    const auto time = fn::Duration::milliseconds(500 << decisions.choose(Choice::Load, 5));
    auto& main = world.start("skyfold", [&] { return mainProgram(truth, program); });
    strike(world, truth, main);
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
