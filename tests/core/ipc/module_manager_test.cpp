// Supervision to the second, with modules that do what the test says; the simulated application shows the rest. What can break here: a
// fatal error missed or told twice, words that name no cause, a module that is launched by nobody.
#include "base/exceptions.h"
#include "core/ipc/module_manager/module_manager.h"
#include "hub_fixture.h"
#include "support/log_capture.h"

namespace {

using namespace test;
using Texts = std::vector<std::string>;

class FakeModule final : public ipc::ModuleDefinition {
public:
    FakeModule(Texts& told, std::string name) : _told(told), _name(std::move(name)) { }
    bool runsMainLoop() override { return false; }
    void launch(ipc::Dispatcher&, const fn::String& workerTag) override
    {
        if (isFailing) throw fn::RuntimeException("no such file");
        tag = workerTag;
        _told.push_back("launch " + _name);
    }
    void kill() override { _told.push_back("kill " + _name); }
    bool isSeparateProcess() override { return true; }
    std::optional<fn::String> executablePath() override { return std::nullopt; }
    fn::String name() override { return _name; }
    void exit(std::int64_t status, int signal) { onExit().fire(status, signal); }

    bool isFailing = false;
    fn::String tag; ///< Of its last launch.

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

    /// The launches happen on the default loop, everything else on the hub's, whose time the test drives.
    void start()
    {
        manager = std::make_unique<ipc::ModuleManager>(*dispatcher, std::move(_definitions));
        manager->onFatalError()
            .connect([this](const fn::String& text) { told.push_back("fatal: " + text.toStdString()); })
            .detach();
        manager->onAllModulesConnected().connect([this] { told.emplace_back("all connected"); }).detach();
        auto& mainLoop = fn::RunLoop::defaultLoop();
        mainLoop.post([&] { mainLoop.post([&] { mainLoop.stop(); }); });
        manager->start();
    }

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
    add("first");
    add("second").isFailing = true;
    add("third");
    start();
    EXPECT_EQ(news(), (Texts { "launch first", "fatal: Failed to start module second:\nno such file" }));
    const std::unique_ptr<ipc::ModuleDefinition> lost(
        ipc::ModuleDefinition::create("lost", "no_such_loader", false, false, false));
    for (int attempt = 0; attempt < 2; ++attempt) EXPECT_THROW(lost->launch(*dispatcher, "tag"), fn::IOException);
}

TEST_F(ModuleManagerTest, TheFirstTimeoutRelaunchesTheSecondGivesUp)
{
    auto& module = add("m");
    start();
    const auto tag = module.tag;
    EXPECT_EQ(news(fn::Duration::seconds(30) - instant), Texts { "launch m" });
    EXPECT_EQ(news(instant), Texts { "kill m" });
    EXPECT_EQ(news(second - instant), nothing);
    EXPECT_EQ(news(instant), Texts { "launch m" });
    EXPECT_NE(module.tag, tag) << "each launch has a tag of its own";
    join("Module", module.tag.c_str());
    EXPECT_EQ(news(second), Texts { "all connected" });
    // Much later: it exits, and its next launch does not connect either.
    module.exit(0, 9);
    EXPECT_EQ(news(second), Texts { "launch m" });
    EXPECT_EQ(news(fn::Duration::seconds(30)), (Texts { "kill m", "fatal: Module m failed to connect" }));
    EXPECT_EQ(news(fn::Duration::seconds(100)), nothing);
}

TEST_F(ModuleManagerTest, AnExitBeforeTheConnectionIsForgivenOnce)
{
    auto& module = add("m");
    start();
    const LogCapture log(2);
    for (const int signal : { 0, 9 }) module.exit(1, signal);
    const std::string line = "2 ipc.moduleManager Module m has ended unexpectedly (";
    const std::string end = ") and will be started again in a second";
    EXPECT_EQ(log.lines(), (Texts { line + "exit code 1" + end, line + "signal SIGKILL" + end }));
    EXPECT_EQ(news(second), (Texts { "launch m", "launch m", "launch m" }));
    module.exit(3, 11);
    EXPECT_EQ(news(fn::Duration::seconds(100)),
        Texts { "fatal: Module m did exit before connection was established (status: 3, signal 11)" });
}

TEST_F(ModuleManagerTest, LaunchesNobodyOnceTheHubHasGone)
{
    auto& module = add("m");
    start();
    module.exit(0, 0);
    dispatcher.reset();
    module.exit(0, 0);
    EXPECT_EQ(news(second), Texts { "launch m" });
}
