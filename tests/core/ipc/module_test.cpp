// The module runtime on the default loop; the hub is another process, as there is a bus in its own. What can break here: a bus
// started twice or never, a module told too early, twice or not at all, one that goes while its start is pending and takes the
// others with it.
#include "core/ipc/run_module.h"
#include "foundation/coroutine/next.h"
#include "support/hub.h"
#include "support/worker.h"
#include <gtest/gtest.h>

namespace {

class TestModule final : public ipc::Module {
public:
    TestModule(const fn::String& pipePath, const char* name, std::vector<std::string>& told)
        : Module(ipc::ModuleInitData(pipePath, name, "tag", "user data", true)),
          _name(name),
          _told(told)
    {
    }
    void onConnected() override
    {
        sticky = fn::MessageBus::instance().getStickyMessage("test.module");
        _told.push_back(_name);
    }
    std::optional<fn::Value> sticky; ///< As it was then.

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

    std::unique_ptr<TestModule> module(const char* name)
    {
        return std::make_unique<TestModule>(hub.pipeName, name, told);
    }

    void awaitTold(std::size_t count)
    {
        EXPECT_TRUE(test::runUntil(loop, [&] { return told.size() >= count; }));
    }

    test::Hub hub;
    fn::uv::Loop& loop = fn::RunLoop::defaultLoop().uvLoop();
    std::vector<std::string> told;
};

fn::Promise<void> callWhenTold(ipc::Module& module)
{
    const auto [name, method] = co_await fn::next(fn::MessageBus::instance().onMessage("test.call"));
    const auto service =
        co_await module.worker().registry()->getInstance<test::ServiceReference>(fn::Duration::seconds(20));
    co_await service->callMethod(method.string());
}

} // namespace

TEST_F(ModuleTest, ItsScopeEndsBeforeItsMembersAndCancelsTheCallsThatAreAwaitedThere)
{
    test::Client other(loop, hub.pipeName);
    ASSERT_TRUE(test::runUntil(loop, [&] { return other.isConnected(); }));
    const auto service = fn::makeAuto<test::Service>(*other.worker);
    auto ending = module("ending");
    awaitTold(1);
    loop.post([&] {
        other.worker->registry()->registerObject(service, 0);
        ending->scope().start(callWhenTold(*ending));
        ending->scope().start([&]() -> fn::Promise<void> {
            EXPECT_THROW(ipc::endModule(std::move(ending)), fn::RuntimeException);
            co_return;
        });
        fn::MessageBus::instance().postMessage("test.call", "wait");
    });
    ASSERT_TRUE(test::runUntil(loop, [&] { return service->calls.size() == 1; }));
    EXPECT_FALSE(ending);
    ipc::endModules(); // A scope that ends too late is reported.
    EXPECT_TRUE(test::runUntil(loop, [&] { return service->cancelled == 1; }));
}

TEST_F(ModuleTest, TheBusBringsWhatWasPostedBeforeAndStaysForTheOthersWhenTheModuleThatStartedItEnds)
{
    test::Client other(loop, hub.pipeName);
    ASSERT_TRUE(test::runUntil(loop, [&] { return other.isConnected(); }));
    auto bus = test::findInstance<ipc::MessageBus>(loop, *other.worker);
    fn::MessageBus::setInstance(*bus);
    fn::MessageBus::instance().postStickyMessage("test.module", 7);
    bus.reset(); // The local bus is back.
    test::runTurns(loop);
    auto first = module("first");
    auto second = module("second");
    awaitTold(2);
    EXPECT_TRUE(first->sticky == fn::Value(7) && second->sticky == fn::Value(7));
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
    awaitTold(1);
    EXPECT_EQ(told, std::vector<std::string> { "second" });
}
