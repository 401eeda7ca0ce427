// A whole application from its start to its end, with everything that can go wrong in it, from seed after seed.
#include "core/ipc/module_manager/module_manager.h"
#include "core/ipc/run_module.h"
#include "core/services/app_info.h"
#include "core/simulation/search.h"
#include "foundation/logging/category_manager.h"
#include "foundation/uv/signal_watcher.h"
#include "world_truth.h"
#include <algorithm>
#include <csignal>

namespace {

using namespace simulated;

constexpr auto rest = fn::Duration::seconds(50); // Longer than any launch, look-up, freeze or answer takes.
constexpr auto stopDelay = fn::Duration::seconds(3);
constexpr auto idleLoad = fn::Duration::seconds(7200);
constexpr auto idleRest = fn::Duration::seconds(2700); // Longer than any module is idle.

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
        const auto name = fmt::format("{}{}", moduleName, number);
        if (!isInProcess) truth.expects(name);
        definitions.push_back(ipc::ModuleDefinition::create(name, "module_loader", isInProcess, false, false));
    };
    for (std::uint32_t i = 1; i <= program.modules; ++i) addModule(i, false);
    if (program.hasOwnModule) addModule(5, true);
    ipc::ModuleManager manager(dispatcher, std::move(definitions));
    listenTo(manager);
    const auto end = [&] {
        manager.stop();
        truth.isStopped = true;
        dispatcher.stop(stopDelay, [&] { truth.checkQuit(); });
    };
    const fn::uv::SignalWatcher terminated(loop, SIGTERM, end);
    const fn::uv::SignalWatcher interrupted(loop, SIGINT, end);
    manager.start();
    truth.hub = nullptr;
    ipc::endModules();
    return 0;
}

ipc::HubLimits someLimits(core::simulation::Decisions& decisions, std::uint32_t modules)
{
    ipc::HubLimits limits;
    if (decisions.choose(Choice::Fault, 2) == 1) limits.workerIds = static_cast<ipc::WorkerId>(modules + 4);
    if (decisions.choose(Choice::Fault, 2) == 1) {
        limits.pausingQueueBytes = std::size_t(1024) << decisions.choose(Choice::Fault, 6);
        limits.stalledQueueBytes = limits.pausingQueueBytes / 4;
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
        truth.harmed(main.name(), "is frozen", time);
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

core::simulation::Report runOnce(core::simulation::Decisions& decisions, bool tells)
{
    core::simulation::Report report;
    World world(decisions, core::simulation::drawOptions(decisions));
    WorldTruth truth(world, tells);
    world.setHarmObserver([&](const auto& name, const char* harm, auto time) { truth.harmed(name, harm, time); });
    Program program { .modules = decisions.choose(Choice::Load, 4) + 1,
        .hasOwnModule = decisions.choose(Choice::Load, 4) == 3,
        .limits = {} };
    program.limits = someLimits(decisions, program.modules);
    if (program.limits.pausingQueueBytes < ipc::limits::pausingQueueBytes)
        truth.expectLateNotices(); // Whoever waits for a slow receiver is not waited for.
    truth.modulesEndIdle = decisions.choose(Choice::Load, 16) == 15;
    const auto time = fn::Duration::milliseconds(500 << decisions.choose(Choice::Load, 5));
    auto& main = world.start("skyfold", [&] { return mainProgram(truth, program); });
    strike(world, truth, main);
    world.runFor(truth.modulesEndIdle ? idleLoad : time);
    truth.rest();
    world.options() = world.options().calm();
    world.runFor(truth.modulesEndIdle ? idleRest : rest);
    if (main.isDead() && !truth.isEnding) truth.violated("the main process has ended by itself");
    truth.checkAtRest();
    checkEnd(world, truth, main);
    report.violations = truth.violations();
    report.hash = world.traceHash();
    report.steps = world.steps();
    report.seconds = world.now().totalSeconds();
    return report;
}

} // namespace

int main(int argc, char** argv) { return core::simulation::searchMain(argc, argv, runOnce); }
