// The module runtime on the default loop; the hub is another process, as there is a bus in its own. What can break here: a bus
// started twice or never, a module told too early, twice or not at all, one that goes while its start is pending and takes the
// others with it.
#include "base/exceptions.h"
#include "core/ipc/run_module.h"
#include "support/expectations.h"
#include "support/hub.h"
#include "support/worker.h"
#include <csignal>
#include <gtest/gtest.h>
#include <set>

namespace {

class TestModule final : public ipc::Module {
public:
    TestModule(const fn::String& pipePath, const char* name, std::vector<std::string>& told, bool ownProcess)
        : Module(ipc::ModuleInitData(pipePath, name, "tag", "user data", ownProcess)),
          _name(name),
          _told(told)
    {
    }
    void onConnected() override
    {
        sticky = fn::MessageBus::instance().getStickyMessage("test.module");
        _told.push_back(_name);
        if (fails) throw fn::RuntimeException(_name + " has failed");
    }

    void terminate() override { ++terminations; }

    std::optional<fn::Value> sticky;
    bool fails = false;
    int terminations = 0;

private:
    const std::string _name;
    std::vector<std::string>& _told;
};

class ModuleTest : public testing::Test {
protected:
    void TearDown() override
    {
        test::runTurns(loop);
        EXPECT_FALSE(ipc::MessageBus::isInstalled()) << "the bus has outlived its module";
    }

    std::unique_ptr<TestModule> module(const char* name, bool ownProcess = true)
    {
        return std::make_unique<TestModule>(hub.pipeName, name, told, ownProcess);
    }

    /// In any order: two that are on their way to the hub arrive as it happens.
    void await(const std::set<std::string>& names)
    {
        EXPECT_TRUE(test::runUntil(loop, [&] { return told.size() >= names.size(); }));
        EXPECT_EQ(std::multiset(told.begin(), told.end()), std::multiset(names.begin(), names.end()));
    }

    test::Hub hub;
    fn::uv::Loop& loop = fn::RunLoop::defaultLoop().uvLoop();
    std::vector<std::string> told;
};

} // namespace

TEST_F(ModuleTest, OneBusStartServesAllModulesAlsoWhereOneFails)
{
    // A sticky body that somebody else has posted before.
    test::Client other(loop, hub.pipeName);
    ASSERT_TRUE(test::runUntil(loop, [&] { return other.isConnected(); }));
    auto bus = test::findInstance<ipc::MessageBus>(loop, *other.worker);
    fn::MessageBus::setInstance(*bus);
    fn::MessageBus::instance().postStickyMessage("test.module", 7);
    bus.reset(); // The local bus is back.
    test::runTurns(loop);

    const auto first = module("first");
    first->fails = true;
    const test::ExpectUnhandled unhandled;
    const auto second = module("second");
    await({ "first", "second" });
    EXPECT_EQ(unhandled.messages(), std::vector<std::string> { "first has failed" });
    EXPECT_TRUE(first->sticky == fn::Value(7) && second->sticky == fn::Value(7));
    const auto late = module("late");
    await({ "first", "second", "late" });
}

TEST_F(ModuleTest, TheBusStaysForTheOthersWhenTheModuleThatStartedItEnds)
{
    auto first = module("first");
    auto second = module("second");
    await({ "first", "second" });
    loop.post([&] {
        loop.stop(); // Meant for this run, not for the module's last turns inside it.
        ipc::endModule(std::move(first));
    });
    loop.run();
    ASSERT_TRUE(test::runUntil(loop, [&] { return ipc::MessageBus::isInstalled(); }));
    int heard = 0;
    const auto listener = fn::MessageBus::instance().onMessage("test.stays").connect([&](auto&&...) { ++heard; });
    fn::MessageBus::instance().postMessage("test.stays", {});
    EXPECT_EQ(heard, 0) << "not at once: by way of the hub";
    EXPECT_TRUE(test::runUntil(loop, [&] { return heard == 1; }));
    EXPECT_EQ(told.size(), 2u) << "nobody is told again";
    second.reset();
    fn::MessageBus::instance().postMessage("test.stays", {});
    EXPECT_EQ(heard, 2) << "the local bus is back at once, without a turn of the loop";
}

TEST_F(ModuleTest, WhoWaitsForTheBusStartOfAModuleThatGoesStartsItAnew)
{
    std::unique_ptr<TestModule> first, second;
    const auto areConnected = [&] { return first->worker().isConnected() && second->worker().isConnected(); };
    for (int attempt = 0; attempt < 20 && (!first || !told.empty()); ++attempt) { // The bus may be there too early.
        first.reset();
        second.reset();
        told.clear();
        first = module("first");
        second = module("second");
        ASSERT_TRUE(test::runUntil(loop, areConnected));
    }
    ASSERT_TRUE(told.empty());
    first.reset();
    await({ "second" });
}

TEST_F(ModuleTest, EndsItsProcessWithTheApplicationButNotTheMainProcess)
{
    const auto only = module("only");
    const auto within = module("within", false);
    await({ "only", "within" });
    hub.signal(SIGTERM);
    EXPECT_TRUE(test::runUntil(loop, [&] { return only->terminations > 0 && !within->worker().isConnected(); }));
    EXPECT_EQ(within->terminations, 0);
}
