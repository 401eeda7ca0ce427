// Supervision with modules that do what the test says. What can break here: a module relaunched twice for one fault or not
// at all, a fatal error missed or told twice, a timer or signal that comes after the manager has gone.
#include "core/app_info.h"
#include "core/ipc/module_manager/module_manager.h"
#include "foundation/exceptions.h"
#include "foundation/time/clock.h"
#include "support/log_capture.h"
#include "support/peer.h"
#include "support/run_until.h"
#include <algorithm>
#include <gtest/gtest.h>

namespace {

/// What happened to a fake module, and how it behaves.
struct Script {
    explicit Script(const char* name, bool separate = true, bool mainLoop = false)
        : name(name),
          separate(separate),
          mainLoop(mainLoop)
    {
    }

    fn::String name;
    bool separate;
    bool mainLoop;
    std::vector<fn::String> tags; ///< Of its launches.
    int kills = 0;
    bool failing = false;
    fn::Signal<std::int64_t, int>* exit = nullptr;
};

class FakeModule final : public ipc::ModuleDefinition {
public:
    explicit FakeModule(Script& script) : _script(script) { script.exit = &onExit(); }
    ~FakeModule() override { ++deletions; }
    static inline int deletions = 0;
    bool runsMainLoop() override { return _script.mainLoop; }
    void launch(ipc::Dispatcher&, const fn::String& workerTag) override
    {
        if (_script.failing) throw fn::RuntimeException("no such file");
        _script.tags.push_back(workerTag);
    }
    void kill() override { ++_script.kills; }
    bool isSeparateProcess() override { return _script.separate; }
    std::optional<fn::String> executablePath() override { return std::nullopt; }
    fn::String name() override { return _script.name; }

private:
    Script& _script;
};

class ModuleManagerTest : public testing::Test {
protected:
    void SetUp() override
    {
        core::AppInfo::initialize(core::AppInfo::App::Skyfold);
        dispatcher.bind();
        dispatcher.start();
    }

    void make(std::vector<Script*> scripts)
    {
        std::vector<ipc::ModuleDefinition*> definitions;
        for (auto* script : scripts) definitions.push_back(new FakeModule(*script));
        manager = std::make_unique<ipc::ModuleManager>(dispatcher, std::move(definitions));
        manager->onFatalError()
            .connect([this](const fn::String& message) { fatal.push_back(message.toStdString()); })
            .detach();
        manager->onAllModulesConnected().connect([this] { ++allConnected; }).detach();
        manager->onModuleNotResponding()
            .connect([this](const fn::String& name) { silent.push_back(name.toStdString()); })
            .detach();
    }

    /// The launches happen on the default loop, everything else on the dispatcher's, whose time the test drives.
    void start()
    {
        auto& mainLoop = fn::RunLoop::defaultLoop();
        mainLoop.post([&] { mainLoop.post([&] { mainLoop.stop(); }); });
        manager->start();
        test::runTurns(loop);
    }

    std::unique_ptr<test::Peer> connect(const Script& script)
    {
        auto peer = std::make_unique<test::Peer>(loop, dispatcher.pipePath());
        peer->hello(script.name.c_str(), script.tags.back().c_str());
        EXPECT_TRUE(test::runUntil(loop, [&] { return peer->id() != ipc::NO_WORKER_ID; }));
        return peer;
    }

    void pass(fn::Duration time)
    {
        clock.advance(time);
        test::runTurns(loop, 40);
    }

    fn::ManualClock clock;
    fn::uv::Loop loop { clock };
    std::unique_ptr<ipc::Dispatcher> dispatcherOwner =
        std::make_unique<ipc::Dispatcher>(loop, fn::Duration::seconds(9));
    ipc::Dispatcher& dispatcher = *dispatcherOwner;
    std::unique_ptr<ipc::ModuleManager> manager;
    std::vector<std::string> fatal;
    std::vector<std::string> silent;
    int allConnected = 0;
};

constexpr auto second = fn::Duration::seconds(1);

} // namespace

TEST_F(ModuleManagerTest, LaunchesInOrderAndStopsAtTheFirstThatFails)
{
    Script first { "first" }, second { "second" }, third { "third" };
    second.failing = true;
    make({ &first, &second, &third });
    const test::LogCapture log;
    start();
    EXPECT_EQ(first.tags.size(), 1u);
    EXPECT_TRUE(third.tags.empty());
    test::Peer stranger(loop, dispatcher.pipePath());
    stranger.hello("Stranger", "");
    ASSERT_TRUE(test::runUntil(loop, [&] { return stranger.id() != ipc::NO_WORKER_ID; }));
    EXPECT_TRUE(log.contains("Received Connected notification for unmanaged module Stranger"))
        << "a worker without a tag is not the module that was not launched";
    EXPECT_EQ(fatal, std::vector<std::string> { "Failed to start module second:\nno such file" });
    EXPECT_TRUE(log.contains("2 ipc.moduleManager Aborting launch"));
    EXPECT_TRUE(
        log.contains(fmt::format("4 ipc.moduleManager Launching module first ({}) (attempt 1)", first.tags[0])));
    FakeModule::deletions = 0;
    manager.reset();
    EXPECT_EQ(FakeModule::deletions, 3);
}

TEST_F(ModuleManagerTest, TheFirstTimeoutRelaunchesTheSecondGivesUp)
{
    Script module { "m" };
    make({ &module });
    start();
    pass(fn::Duration::seconds(30));
    EXPECT_EQ(module.kills, 1);
    EXPECT_EQ(module.tags.size(), 1u);
    pass(second);
    ASSERT_EQ(module.tags.size(), 2u);
    EXPECT_NE(module.tags[0], module.tags[1]) << "each launch has a tag of its own";
    const auto peer = connect(module);
    EXPECT_EQ(allConnected, 1);
    // Much later: it exits, and its next launch does not connect either.
    pass(fn::Duration::seconds(2));
    module.exit->fire(0, 0);
    pass(second);
    ASSERT_EQ(module.tags.size(), 3u);
    pass(fn::Duration::seconds(30));
    EXPECT_EQ(module.kills, 2);
    EXPECT_EQ(fatal, std::vector<std::string> { "Module m failed to connect" });
    pass(fn::Duration::seconds(100));
    EXPECT_EQ(module.tags.size(), 3u);
}

TEST_F(ModuleManagerTest, AnExitBeforeTheConnectionIsForgivenOnce)
{
    Script module { "m" };
    make({ &module });
    start();
    const test::LogCapture log(2);
    module.exit->fire(1, 0);
    EXPECT_EQ(log.lines(),
        std::vector<std::string> { "2 ipc.moduleManager Module m has ended unexpectedly (exit code 1) and will be "
                                   "started again in a second" });
    pass(second);
    ASSERT_EQ(module.tags.size(), 2u);
    module.exit->fire(3, 11);
    EXPECT_EQ(log.lines().size(), 2u) << "the fatal line says it";
    pass(fn::Duration::seconds(100));
    EXPECT_EQ(module.tags.size(), 2u);
    EXPECT_EQ(fatal,
        std::vector<std::string> { "Module m did exit before connection was established (status: 3, signal 11)" });
}

TEST_F(ModuleManagerTest, RelaunchesWhatExitsAndTellsWhenAllAreThereAgain)
{
    Script one { "one" }, two { "two" };
    make({ &one, &two });
    start();
    const auto first = connect(one);
    EXPECT_EQ(allConnected, 0);
    const auto other = connect(two);
    EXPECT_EQ(allConnected, 1);
    const test::LogCapture log(2);
    one.exit->fire(0, 9);
    EXPECT_TRUE(log.contains("Module one has ended unexpectedly (signal SIGKILL)"));
    pass(second);
    ASSERT_EQ(one.tags.size(), 2u);
    const auto again = connect(one);
    EXPECT_EQ(allConnected, 2);
    one.exit->fire(0, 0);
    manager->stop();
    two.exit->fire(0, 9);
    EXPECT_EQ(log.lines().size(), 1u) << "asked to end, both of them";
    pass(second);
    EXPECT_EQ(one.tags.size(), 2u) << "nor what was to come in a second";
    EXPECT_EQ(two.tags.size(), 1u) << "nothing is relaunched after stop()";
    EXPECT_TRUE(fatal.empty());
}

TEST_F(ModuleManagerTest, KillsAndRelaunchesWhoStopsAnsweringUnlessItIsInThisProcess)
{
    Script apart { "apart" }, within { "within", false };
    make({ &apart, &within });
    start();
    const auto a = connect(apart);
    const auto b = connect(within);
    const test::LogCapture log(2);
    pass(fn::Duration::seconds(3));
    pass(fn::Duration::seconds(9));
    std::ranges::sort(silent);
    EXPECT_EQ(silent, (std::vector<std::string> { "apart", "within" }));
    EXPECT_EQ(apart.kills, 1);
    EXPECT_EQ(within.kills, 0);
    EXPECT_TRUE(log.contains("Module apart stopped responding and will be terminated"));
    EXPECT_TRUE(log.contains("Module within stopped responding but can not be terminated because it is in-process"));
    pass(second);
    EXPECT_EQ(apart.tags.size(), 2u);
    EXPECT_EQ(within.tags.size(), 1u);
}

TEST_F(ModuleManagerTest, TheMainLoopModuleIsLaunchedByStartItself)
{
    Script first { "first" }, main { "main", false, true };
    make({ &first, &main });
    // Its entry point would run the loop; this one returns at once, so start() does.
    manager->start();
    EXPECT_EQ(main.tags.size(), 1u);
    EXPECT_TRUE(first.tags.empty());
    test::runTurns(fn::RunLoop::defaultLoop());
    EXPECT_EQ(first.tags.size(), 1u);

    make({ &first, &main });
    manager->stop();
    start(); // Runs the loop itself.
    EXPECT_EQ(main.tags.size() + first.tags.size(), 2u) << "nobody is launched after stop()";
}

TEST_F(ModuleManagerTest, MovesAndGoesBeforeTimersAndSignals)
{
    Script module { "m" };
    make({ &module });
    start();
    ipc::ModuleManager moved(std::move(*manager));
    manager.reset();
    module.exit->fire(1, 0);
    FakeModule::deletions = 0;
    {
        const ipc::ModuleManager gone(std::move(moved));
    }
    EXPECT_EQ(FakeModule::deletions, 1);
    pass(second);
    const auto stranger = connect(module);
    EXPECT_EQ(module.tags.size(), 1u);
}

TEST_F(ModuleManagerTest, LaunchesNothingOnceTheDispatcherHasGone)
{
    Script module("m");
    make({ &module });
    start();
    const auto peer = connect(module);
    module.exit->fire(0, 0);
    dispatcherOwner.reset();
    pass(second);
    EXPECT_EQ(module.tags.size(), 1u);
    module.exit->fire(0, 0);
    pass(second);
    EXPECT_EQ(module.tags.size(), 1u);
}
