// What can break here: a module that is stopped and comes back, one that is started and does not, a stop that nobody hears the end of, a
// process that outlives it, an application that ends for an optional module, parameters that come to nobody or to everybody.
#include "core/ipc/detail/module_parameters.h"
#include "core/module_manager/supervised.h"
#include "core/module_manager/told.h"
#include "support/log_capture.h"
#include "support/scoped_variable.h"
#include "support/temporary_folder.h"
#include <gtest/gtest.h>

namespace {

using fn::Duration;
using test::Supervised;

constexpr auto grace = Duration::seconds(1);

const std::vector<std::string> ready { "is starting (launch 1)", "is ready" };

/// What is said from the beginning on to the module's being ready, and then.
std::vector<std::string> thenSaid(std::initializer_list<const char*> more)
{
    auto all = ready;
    all.insert(all.end(), more.begin(), more.end());
    for (auto& text : all) text.insert(0, std::string(test::moduleName) + " ");
    return all;
}

fn::Promise<void> isStoppedAndStarted(Supervised& run)
{
    co_await run.until("is ready");
    co_await run.manager().stopModule(test::moduleName, grace);
    EXPECT_FALSE(Supervised::isThere());
    co_await fn::sleep(Duration::seconds(60));
    run.manager().startModule(test::moduleName);
    co_await run.until("is ready again (launch 2)");
}

fn::Promise<void> isStoppedBeforeItsRelaunch(Supervised& run)
{
    co_await run.until("is ready");
    Supervised::signal(SIGKILL);
    co_await run.until("was ended by signal 9 (killed); starting it again in 1 s");
    co_await run.manager().stopModule(test::moduleName, grace);
    co_await fn::sleep(Duration::seconds(60));
}

fn::Promise<void> doesNotEnd(Supervised& run)
{
    co_await run.until("is ready");
    Supervised::signal(SIGSTOP);
    const auto begin = Supervised::world().now();
    co_await run.manager().stopModule(test::moduleName, grace);
    EXPECT_GE(Supervised::world().now() - begin, grace);
    EXPECT_FALSE(Supervised::isThere());
}

fn::Promise<void> isStartedWhileItIsStopped(Supervised& run)
{
    co_await run.until("is ready");
    const auto first = run.manager().stopModule(test::moduleName, grace);
    const auto second = run.manager().stopModule(test::moduleName, grace);
    run.manager().startModule(test::moduleName);
    co_await first;
    co_await second;
    co_await run.until("is ready again (launch 2)");
}

fn::Promise<void> reachesItsLimit(Supervised& run)
{
    co_await run.until("is ready");
    Supervised::signal(SIGSEGV);
    co_await run.until("is ready again (launch 2)");
    Supervised::signal(SIGKILL);
    co_await run.until("is ready again (launch 3)");
    Supervised::signal(SIGTERM);
    co_await run.until("ended with exit code 0; it is not started again, after 2 times within 60 s");
    co_await fn::sleep(Duration::seconds(600));
    run.manager().startModule(test::moduleName);
    co_await run.until("is ready again (launch 4)");
    Supervised::signal(SIGKILL);
    co_await run.until("was ended by signal 9 (killed); starting it again in 500 ms");
}

const ipc::RelaunchPolicy twice {
    .delay = Duration::milliseconds(500), .growth = 2, .limit = 2, .within = Duration::seconds(60)
};

struct Row {
    Supervised::Story story;
    ipc::ModuleOptions options;
    std::vector<std::string> said;
};

const Row rows[] {
    { isStoppedAndStarted, {},
        thenSaid({ "is asked to end", "is stopped", "is starting (launch 2)", "is ready again (launch 2)" }) },
    { isStoppedBeforeItsRelaunch, {},
        thenSaid({ "was ended by signal 9 (killed); starting it again in 1 s", "is stopped" }) },
    { doesNotEnd, {}, thenSaid({ "is asked to end", "is stopped" }) },
    { isStartedWhileItIsStopped, {},
        thenSaid({ "is asked to end", "is stopped", "is starting (launch 2)", "is ready again (launch 2)" }) },
    { reachesItsLimit, { .isOptional = true, .relaunch = twice },
        thenSaid({ "was ended by signal 11 (segmentation fault); starting it again in 500 ms", "is starting (launch 2)",
            "is ready again (launch 2)", "was ended by signal 9 (killed); starting it again in 1 s",
            "is starting (launch 3)", "is ready again (launch 3)",
            "ended with exit code 0; it is not started again, after 2 times within 60 s", "is starting (launch 4)",
            "is ready again (launch 4)", "was ended by signal 9 (killed); starting it again in 500 ms" }) },
};

} // namespace

TEST(ModuleManager, StartsAndStopsModulesAsItIsTold)
{
    for (const auto& [story, options, said] : rows) {
        for (std::uint64_t seed = 1; seed <= 5; ++seed) {
            Supervised run;
            EXPECT_EQ(run.simulate(seed, options, story), 0);
            EXPECT_EQ(run.said, said) << "seed " << seed;
        }
    }
}

TEST(ModuleManager, StopsAModuleAtWhicheverMomentOfItsLife)
{
    for (std::uint64_t seed = 1; seed <= 40; ++seed) {
        Supervised run;
        const auto story = [&](Supervised&) -> fn::Promise<void> {
            co_await fn::sleep(Duration::milliseconds(static_cast<int>(seed % 8)));
            if (seed % 3 == 0 && Supervised::isThere()) Supervised::signal(SIGKILL);
            if (seed % 5 == 0) co_await fn::sleep(Duration::milliseconds(1000));
            co_await run.manager().stopModule(test::moduleName, grace);
            EXPECT_EQ(run.manager().module(test::moduleName).state, ipc::ModuleStatus::State::Stopped);
            EXPECT_FALSE(Supervised::isThere());
            co_await fn::sleep(Duration::seconds(60));
            EXPECT_FALSE(Supervised::isThere());
        };
        EXPECT_EQ(run.simulate(seed, {}, story), 0) << "seed " << seed;
    }
}

TEST(ModuleManager, EndsTheApplicationForAModuleUnlessThatIsOptional)
{
    for (const bool isOptional : { false, true }) {
        Supervised run;
        const auto story = [](Supervised& self) -> fn::Promise<void> {
            co_await self.until("is ready");
            self.manager().addModule("test_inside", { .inMainProcess = true, .isOptional = true });
            EXPECT_THROW(co_await self.manager().stopModule("test_inside"), fn::RuntimeException);
            EXPECT_THROW(co_await self.manager().stopModule("unknown"), fn::RuntimeException);
            Supervised::signal(SIGKILL);
            co_await fn::sleep(Duration::seconds(60));
            EXPECT_EQ(self.manager().module("test_none").state, ipc::ModuleStatus::State::GivenUp);
        };
        const ipc::ModuleOptions options { .isOptional = isOptional, .relaunch = { .limit = 0 } };
        EXPECT_EQ(run.simulate(1, options, story), isOptional ? 0 : 1);
    }
}

TEST(ModuleManager, GivesItsParametersToEachLaunchOfAModuleAndToNobodyElse)
{
    const auto story = [](Supervised& run) -> fn::Promise<void> {
        for (int launch = 1; launch <= 2; ++launch) {
            const auto told = co_await run.app().find<test::Told>();
            const auto settings = co_await told->settings();
            EXPECT_EQ(settings.folder, "films");
            EXPECT_EQ(settings.depth, 3);
            const auto source = co_await run.app().find<ipc::ModuleParameters>();
            const auto tag = run.manager().module(test::moduleName).workerTag;
            EXPECT_THROW(co_await source->get(tag), fn::RuntimeException);
            if (launch == 2 || !Supervised::isThere()) co_return;
            Supervised::signal(SIGKILL);
            co_await run.until("is ready again (launch 2)");
        }
    };
    ipc::ModuleOptions options { .parameters = ipc::toValue(test::Settings { "films", 3 }) };
    for (std::uint64_t seed = 1; seed <= 6; ++seed) {
        options.inMainProcess = seed == 6;
        EXPECT_EQ(Supervised().simulate(seed, options, story), 0);
    }
}

TEST(ModuleManager, HearsOfAModuleThatCanNotUseItsParameters)
{
    const test::LogCapture log(2);
    const auto story = [](Supervised& run) { return run.until("ended with exit code 1; starting it again in 1 s"); };
    const auto parameters = fn::Value::map({ { "folder", 7 } });
    EXPECT_EQ(Supervised().simulate(1, { .parameters = parameters }, story), 0);
    EXPECT_TRUE(log.contains("Module Told can not run: Settings, field folder: expected a text, got 7"));
}

TEST(ModuleManager, EndsARealProcessCleanly)
{
    const test::TemporaryFolder folder;
    const test::ScopedVariable logs("XDG_STATE_HOME", folder.path());
    const test::LogCapture log(4);
    const auto story = [](Supervised& run) -> fn::Promise<void> {
        co_await run.until("is ready");
        co_await run.manager().stopModule(test::moduleName, Duration::seconds(60));
    };
    EXPECT_EQ(Supervised().run({ .parameters = ipc::toValue(test::Settings()) }, story), 0);
    EXPECT_TRUE(log.contains("did exit (status: 0, signal 0)"));
}

TEST(ModuleManager, RefusesNamesThatAreNoneAndALoaderThatIsMissing)
{
    fn::uv::Loop& loop = fn::RunLoop::defaultLoop().uvLoop();
    ipc::Dispatcher dispatcher(loop, Duration::seconds(30));
    ipc::ModuleManager manager(dispatcher);
    manager.addModule("a-B_1.c");
    for (const auto& name : { fn::String(), fn::String(".."), fn::String("a/b"), fn::String("a b"),
             fn::String("a-B_1.c"), fn::String(std::string_view("a\0b", 3)), fn::String(std::string(65, 'a')) })
        EXPECT_THROW(manager.addModule(name), fn::RuntimeException) << name;
    EXPECT_THROW(manager.addModule("b", { .relaunch = { .growth = 0.5 } }), fn::RangeException);
    EXPECT_THROW(manager.startModule("b"), fn::RuntimeException);

    const std::unique_ptr<ipc::ModuleDefinition> withoutLoader(
        ipc::ModuleDefinition::create(test::moduleName, "no_loader", false, false, false));
    try {
        withoutLoader->launch(dispatcher, "tag");
        ADD_FAILURE() << "launched";
    } catch (const fn::IOException& failure) {
        EXPECT_NE(std::string_view(failure.what()).find("skyfold.no_loader: no such file"), std::string::npos);
        EXPECT_NE(std::string_view(failure.what()).find("comes with skyfold-core"), std::string::npos);
    }
}
