// Workers in processes of their own around a hub process. What can break here is what one process cannot show: memory
// that is not shared, deaths that nobody announces, endpoints left behind.
#include "core/app_info.h"
#include "support/hub.h"
#include "support/worker.h"
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <map>

namespace {

using test::ChildProcess;
using test::Outcome;
using test::ServiceReference;

class WorkersTest : public testing::Test {
protected:
    void SetUp() override { core::AppInfo::initialize(core::AppInfo::App::Skyfold); }

    std::unique_ptr<ChildProcess> worker(const char* role) { return worker(role, hub); }
    static std::unique_ptr<ChildProcess> worker(const char* role, const test::Hub& hub)
    {
        return std::make_unique<ChildProcess>(std::vector<std::string> { "test_worker", hub.pipeName, role });
    }

    test::Hub hub;
};

/// A worker of the test's own process that uses the service.
class User {
public:
    explicit User(const std::string& pipeName) : client(loop, pipeName.c_str())
    {
        client.worker->registerObjectReferenceClass<ServiceReference>();
        EXPECT_TRUE(test::runUntil(loop, [&] { return client.isConnected(); }));
        service = test::findInstance<ServiceReference>(loop, *client.worker);
    }

    Outcome call(const char* name, const fn::Value& argument = {})
    {
        Outcome outcome;
        loop.post([&] { outcome.observe(service->callMethod(name, argument)); });
        test::runTurns(loop, 2);
        return outcome;
    }

    fn::Value result(const char* name)
    {
        return test::outcomeOf(loop, [&] { return service->callMethod(name, {}); }).value();
    }

    fn::uv::Loop loop;
    test::Client client;
    fn::AutoPtr<ServiceReference> service;
};

} // namespace

TEST_F(WorkersTest, ExchangeObjectsAndCallsThroughAHubProcess)
{
    const auto server = worker("serve");
    ASSERT_EQ(server->readLine(), "serving");
    for (int i = 0; i < 3; ++i) {
        const auto user = worker("use");
        EXPECT_EQ(user->wait(), 0);
    }
    User user(hub.pipeName);
    EXPECT_TRUE(test::runUntil(user.loop, [&] { return user.result("count") == fn::Value(1); }))
        << "what the users were given has gone with them";
}

TEST_F(WorkersTest, AKilledHolderFreesWhatItHeldAndAKilledOwnerEndsCalls)
{
    const auto server = worker("serve");
    ASSERT_EQ(server->readLine(), "serving");
    const auto holder = worker("hold");
    ASSERT_EQ(holder->readLine(), "holding");
    User user(hub.pipeName);
    EXPECT_EQ(user.result("count"), fn::Value(2));
    holder->signal(SIGKILL);
    EXPECT_EQ(holder->wait(), 128 + SIGKILL);
    EXPECT_TRUE(test::runUntil(user.loop, [&] { return user.result("count") == fn::Value(1); }));

    auto pending = user.call("wait");
    server->signal(SIGKILL);
    ASSERT_TRUE(test::runUntil(user.loop, [&] { return pending.isOver(); }));
    EXPECT_EQ(pending.error(), "ObjectDeadException: ");
    EXPECT_TRUE(user.service->dead());
    // The hub serves on: a new server takes the place.
    const auto next = worker("serve");
    ASSERT_EQ(next->readLine(), "serving");
    EXPECT_EQ(worker("use")->wait(), 0);
}

TEST_F(WorkersTest, EndWithTheirHubWhetherItStopsOrIsKilled)
{
    const auto server = worker("serve");
    ASSERT_EQ(server->readLine(), "serving");
    hub.signal(SIGTERM);
    EXPECT_EQ(hub.wait(), 0);
    EXPECT_EQ(server->wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(hub.socket)) << "the endpoint is left behind";

    const test::Hub other;
    const auto orphan = worker("serve", other);
    ASSERT_EQ(orphan->readLine(), "serving");
    other.signal(SIGKILL);
    EXPECT_EQ(orphan->wait(), 0);
}

TEST(ModuleEnd, CallsUnderWayEndBeforeTheModuleDoesAndNobodyComplains)
{
    const std::map<std::string, void (*)(const ChildProcess& module, const ChildProcess& hub)> ends {
        { "SIGTERM", [](auto& module, auto&) { module.signal(SIGTERM); } },
        { "QUIT", [](auto&, auto& hub) { hub.signal(SIGTERM); } },
        { "terminate", [](auto&, auto&) {} },
        { "hub killed", [](auto&, auto& hub) { hub.signal(SIGKILL); } },
    };
    for (const auto& [how, end] : ends) {
        SCOPED_TRACE(how);
        const test::Hub hub;
        ChildProcess module { { "/bin/sh", "-c", "exec \"$0\" \"$@\" 2>&1", TEST_BINARY_DIR "/skyfold.module_loader",
            TEST_BINARY_DIR "/modules/test_busy_module.dll", hub.pipeName, how } };
        ASSERT_EQ(module.readLine(), "busy");
        end(module, hub);
        std::vector<std::string> lines;
        while (const auto line = module.readLine()) lines.push_back(*line);
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.back(), "module destroyed");
        lines.pop_back();
        EXPECT_THAT(lines,
            testing::UnorderedElementsAre("local call rejected", "remote call rejected", "call of the dead rejected",
                "local call followed by a task", "remote call followed by a task",
                "call of the dead followed by a task"));
        EXPECT_EQ(module.wait(), 0);
    }
}

TEST_F(WorkersTest, TheHubTakesItsOptionsAndRefusesOthers)
{
    EXPECT_EQ(ChildProcess({ "hub", "--help" }).wait(), 0);
    EXPECT_NE(ChildProcess({ "hub", "--timeout-ms", "never" }).wait(), 0);
    hub.signal(SIGINT);
    EXPECT_EQ(hub.wait(), 0);
}
