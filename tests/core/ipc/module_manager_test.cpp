// Supervision to the second, with modules that do what the test says. What can break here: a module relaunched twice for one
// fault or not at all, a fatal error missed or told twice, a timer or signal that comes after the manager has gone.
#include "core/ipc/module_manager/module_manager.h"
#include "foundation/exceptions.h"
#include "hub_fixture.h"
#include "support/log_capture.h"
#include <algorithm>

namespace {

using namespace test;
using Texts = std::vector<std::string>;

class FakeModule final : public ipc::ModuleDefinition {
public:
    FakeModule(Texts& told, std::string name) : _told(told), _name(std::move(name)) { }
    ~FakeModule() override { _told.push_back("delete " + _name); }
    bool runsMainLoop() override { return isMain; }
    void launch(ipc::Dispatcher&, const fn::String& workerTag) override
    {
        if (isFailing) throw fn::RuntimeException("no such file");
        tags.push_back(workerTag);
        _told.push_back("launch " + _name);
    }
    void kill() override { _told.push_back("kill " + _name); }
    bool isSeparateProcess() override { return isApart; }
    std::optional<fn::String> executablePath() override { return std::nullopt; }
    fn::String name() override { return _name; }
    void exit(std::int64_t status, int signal) { onExit().fire(status, signal); }

    bool isApart = true, isMain = false, isFailing = false;
    std::vector<fn::String> tags; ///< Of its launches.

private:
    Texts& _told;
    const std::string _name;
};

class ModuleManagerTest : public HubTest {
protected:
    FakeModule& add(const char* name)
    {
        auto* const module = new FakeModule(told, name);
        _definitions.push_back(module); // The manager takes it.
        return *module;
    }

    void make()
    {
        manager = std::make_unique<ipc::ModuleManager>(*dispatcher, std::exchange(_definitions, {}));
        const auto tells = [this](const char* what) {
            return [this, what](const fn::String& text) { told.push_back(what + text.toStdString()); };
        };
        manager->onFatalError().connect(tells("fatal: ")).detach();
        manager->onModuleNotResponding().connect(tells("silent ")).detach();
        manager->onAllModulesConnected().connect([this] { told.emplace_back("all connected"); }).detach();
    }

    /// The launches happen on the default loop, everything else on the hub's, whose time the test drives.
    void start()
    {
        if (!manager) make();
        auto& mainLoop = fn::RunLoop::defaultLoop();
        mainLoop.post([&] { mainLoop.post([&] { mainLoop.stop(); }); });
        manager->start();
    }

    std::unique_ptr<Peer> connect(const FakeModule& module) { return join("Module", module.tags.back().c_str()); }

    /// What has been told since the last question, after some more time.
    Texts news(fn::Duration time = {})
    {
        pass(time);
        return std::exchange(told, {});
    }

    Texts told;
    std::unique_ptr<ipc::ModuleManager> manager;

private:
    std::vector<ipc::ModuleDefinition*> _definitions;
};

constexpr auto second = fn::Duration::seconds(1);
constexpr auto instant = fn::Duration::milliseconds(1);
const Texts nothing;

} // namespace

TEST_F(ModuleManagerTest, LaunchesInOrderAndStopsAtTheFirstThatFails)
{
    const auto& first = add("first");
    add("second").isFailing = true;
    add("third");
    const LogCapture log;
    start();
    EXPECT_EQ(news(), (Texts { "launch first", "fatal: Failed to start module second:\nno such file" }));
    EXPECT_TRUE(log.contains("2 ipc.moduleManager Aborting launch"));
    EXPECT_TRUE(
        log.contains(fmt::format("4 ipc.moduleManager Launching module first ({}) (attempt 1)", first.tags[0])));
    const auto stranger = join("Stranger");
    EXPECT_TRUE(log.contains("Received Connected notification for unmanaged module Stranger"))
        << "a worker without a tag is not the module that was not launched";
    manager.reset();
    EXPECT_EQ(news(), (Texts { "delete first", "delete second", "delete third" }));
}

TEST_F(ModuleManagerTest, TheFirstTimeoutRelaunchesTheSecondGivesUp)
{
    auto& module = add("m");
    start();
    EXPECT_EQ(news(fn::Duration::seconds(30) - instant), Texts { "launch m" });
    EXPECT_EQ(news(instant), Texts { "kill m" });
    EXPECT_EQ(news(second - instant), nothing);
    EXPECT_EQ(news(instant), Texts { "launch m" });
    EXPECT_NE(module.tags[0], module.tags[1]) << "each launch has a tag of its own";
    auto peer = connect(module);
    EXPECT_EQ(news(second), Texts { "all connected" });
    // Much later: it exits, and its next launch does not connect either.
    peer.reset();
    const LogCapture log;
    module.exit(0, 9);
    EXPECT_TRUE(log.contains("2 ipc.moduleManager Module m has ended unexpectedly (signal SIGKILL)"));
    EXPECT_EQ(news(second), Texts { "launch m" });
    EXPECT_EQ(news(fn::Duration::seconds(30)), (Texts { "kill m", "fatal: Module m failed to connect" }));
    EXPECT_EQ(news(fn::Duration::seconds(100)), nothing);
}

TEST_F(ModuleManagerTest, AnExitBeforeTheConnectionIsForgivenOnce)
{
    auto& module = add("m");
    start();
    const LogCapture log(2);
    module.exit(1, 0);
    EXPECT_EQ(log.lines(),
        Texts { "2 ipc.moduleManager Module m has ended unexpectedly (exit code 1) and will be started again in a "
                "second" });
    EXPECT_EQ(news(second), (Texts { "launch m", "launch m" }));
    module.exit(3, 11);
    EXPECT_EQ(log.lines().size(), 2u) << "the fatal line says it";
    EXPECT_EQ(news(fn::Duration::seconds(100)),
        Texts { "fatal: Module m did exit before connection was established (status: 3, signal 11)" });
}

TEST_F(ModuleManagerTest, KillsAndRelaunchesWhoStopsAnsweringUnlessItIsInThisProcess)
{
    const auto& apart = add("apart");
    auto& within = add("within");
    within.isApart = false;
    start();
    const auto a = connect(apart);
    const auto b = connect(within);
    const LogCapture log(2);
    news(fn::Duration::seconds(10));
    auto seen = news(timeout);
    std::ranges::sort(seen);
    EXPECT_EQ(seen, (Texts { "kill apart", "silent apart", "silent within" }));
    EXPECT_TRUE(log.contains("Module apart stopped responding and will be terminated"));
    EXPECT_TRUE(log.contains("Module within stopped responding but can not be terminated because it is in-process"));
    EXPECT_EQ(news(second), Texts { "launch apart" });
}

TEST_F(ModuleManagerTest, TheMainLoopModuleIsLaunchedByStartItself)
{
    add("main").isMain = true;
    add("other");
    // Its entry point would run the loop; this one returns at once, so start() does.
    make();
    manager->start();
    EXPECT_EQ(news(), Texts { "launch main" });
    runTurns(fn::RunLoop::defaultLoop());
    EXPECT_EQ(news(), Texts { "launch other" });
    manager->stop();
    start(); // Runs the loop itself.
    EXPECT_EQ(news(), nothing) << "nobody is launched after stop()";
}

TEST_F(ModuleManagerTest, LaunchesNothingOnceItOrTheHubHasGone)
{
    auto* module = &add("moved");
    start();
    ipc::ModuleManager moved(std::move(*manager));
    manager.reset();
    const auto peer = connect(*module);
    EXPECT_EQ(news(), (Texts { "launch moved", "all connected" }));
    module->exit(1, 0);
    {
        const ipc::ModuleManager gone(std::move(moved));
    }
    EXPECT_EQ(news(second), Texts { "delete moved" });

    module = &add("orphan");
    start();
    module->exit(0, 0);
    dispatcher.reset();
    EXPECT_EQ(news(second), Texts { "launch orphan" });
    module->exit(0, 0);
    EXPECT_EQ(news(second), nothing);
}
