// Modules in real loader processes under the module manager, whose clock the test drives. What can break here: a process
// left behind, a hanging one not noticed, a relaunch that does not come or comes too often.
#include "core/app_info.h"
#include "core/ipc/module_manager/module_manager.h"
#include "foundation/time/clock.h"
#include "support/child_process.h"
#include "support/log_capture.h"
#include "support/worker.h"
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

using test::ServiceReference;

class ModulesTest : public testing::Test {
protected:
    void SetUp() override { core::AppInfo::initialize(core::AppInfo::App::Skyfold); }

    void TearDown() override
    {
        service.reset();
        client.reset();
        if (manager) manager->stop();
        dispatcher->stop(fn::Duration(), {});
        loop->run();
        manager.reset();
        dispatcher.reset();
        loop.reset();
        for (const auto pid : pids) {
            EXPECT_TRUE(ended(pid)) << "process " << pid << " is left behind";
        }
    }

    void launch(const char* module)
    {
        dispatcher->bind();
        dispatcher->start();
        manager = std::make_unique<ipc::ModuleManager>(
            *dispatcher, std::vector { ipc::ModuleDefinition::create(module, "module_loader", false, false, false) });
        manager->onAllModulesConnected().connect([this] { ++connections; }).detach();
        manager->onFatalError().connect([this](const fn::String& message) { fatal = message.toStdString(); }).detach();
        auto& mainLoop = fn::RunLoop::defaultLoop();
        mainLoop.post([&] { mainLoop.post([&] { mainLoop.stop(); }); });
        manager->start();
    }

    void awaitConnection(int number)
    {
        ASSERT_TRUE(test::runUntil(*loop, [&] { return connections == number; }));
    }

    /// The pid of the module's process, told by its service.
    pid_t findModule()
    {
        if (!client) {
            client = std::make_unique<test::Client>(*loop, dispatcher->pipePath());
            client->worker->registerObjectReferenceClass<ServiceReference>();
            EXPECT_TRUE(test::runUntil(*loop, [&] { return client->isConnected(); }));
        }
        service = test::findInstance<ServiceReference>(*loop, *client->worker);
        auto outcome = test::outcomeOf(*loop, [&] { return service->callMethod("pid", {}); });
        pids.push_back(outcome.value().to<pid_t>());
        return pids.back();
    }

    bool ended(pid_t pid)
    {
        fn::uv::Loop waiting;
        return test::runUntil(waiting, [&] { return !test::isRunning(pid); });
    }

    void pass(fn::Duration time)
    {
        clock.advance(time);
        test::runTurns(*loop);
    }

    fn::ManualClock clock;
    std::unique_ptr<fn::uv::Loop> loop = std::make_unique<fn::uv::Loop>(clock);
    std::unique_ptr<ipc::Dispatcher> dispatcher = std::make_unique<ipc::Dispatcher>(*loop, fn::Duration::seconds(30));
    std::unique_ptr<ipc::ModuleManager> manager;
    std::unique_ptr<test::Client> client;
    fn::AutoPtr<ServiceReference> service;
    std::vector<pid_t> pids;
    int connections = 0;
    std::string fatal;
};

} // namespace

TEST_F(ModulesTest, AKilledModuleIsRelaunched)
{
    launch("test_service_module");
    awaitConnection(1);
    const auto pid = findModule();
    const test::LogCapture log;
    kill(pid, SIGKILL);
    ASSERT_TRUE(test::runUntil(*loop, [&] { return log.contains("did exit (status: 0, signal 9)"); }));
    pass(fn::Duration::milliseconds(999));
    EXPECT_FALSE(log.contains("Launching"));
    pass(fn::Duration::milliseconds(1));
    awaitConnection(2);
    EXPECT_NE(findModule(), pid);
    EXPECT_TRUE(fatal.empty());
}

TEST_F(ModulesTest, AHangingModuleIsKilledAndRelaunched)
{
    launch("test_service_module");
    awaitConnection(1);
    const auto pid = findModule();
    kill(pid, SIGSTOP);
    // The own worker and the client go on answering: their time is made for them.
    std::vector<fn::String> silent;
    manager->onModuleNotResponding().connect([&](const fn::String& name) { silent.push_back(name); }).detach();
    pass(fn::Duration::seconds(10));
    pass(fn::Duration::seconds(10));
    pass(fn::Duration::seconds(10));
    EXPECT_TRUE(silent.empty());
    pass(fn::Duration::seconds(10));
    EXPECT_EQ(silent, std::vector<fn::String> { "test_service_module" });
    EXPECT_TRUE(ended(pid));
    pass(fn::Duration::seconds(1));
    awaitConnection(2);
    EXPECT_NE(findModule(), pid);
}

TEST_F(ModulesTest, AMissingLibraryEndsTheLoaderTwiceAndThenForGood)
{
    launch("no_such_module");
    manager->onFatalError().connect([this](auto&&) { manager.reset(); }).detach(); // From inside the exit that is told.
    test::LogCapture log;
    ASSERT_TRUE(test::runUntil(*loop, [&] { return log.contains("did exit (status: 1"); }));
    pass(fn::Duration::seconds(1));
    ASSERT_TRUE(test::runUntil(*loop, [&] { return !fatal.empty(); }));
    EXPECT_EQ(fatal, "Module no_such_module did exit before connection was established (status: 1, signal 0)");
}

TEST(MainProgram, ItsDeathEndsItsModules)
{
    test::ChildProcess program { { "test_main_program" } };
    const auto line = program.readLine();
    ASSERT_TRUE(line);
    const auto pid = static_cast<pid_t>(std::stol(*line));
    ASSERT_TRUE(test::isRunning(pid));
    program.signal(SIGKILL);
    fn::uv::Loop loop;
    EXPECT_TRUE(test::runUntil(loop, [&] { return !test::isRunning(pid); }));
}

TEST(MainProgram, StartedWithoutStandardStreamsPassesEmptyOnesOn)
{
    const std::string path = TEST_BINARY_DIR "/programs/test_main_program";
    test::ChildProcess program { { "/bin/sh", "-c", "exec \"$0\" <&- 2>&-", path } };
    const auto pid = program.readLine();
    ASSERT_TRUE(pid);
    for (const char* stream : { "/fd/0", "/fd/2" }) {
        EXPECT_EQ(std::filesystem::read_symlink("/proc/" + *pid + stream), "/dev/null") << stream;
    }
}

TEST(Loader, RefusesAWrongCommandLine)
{
    const std::string loader = TEST_BINARY_DIR "/skyfold.module_loader";
    EXPECT_EQ(test::ChildProcess({ loader, "--help" }).wait(), 0);
    EXPECT_EQ(test::ChildProcess({ loader, "one" }).wait(), 2);
    EXPECT_EQ(test::ChildProcess({ loader, "/no/such/library.dll", "pipe", "tag" }).wait(), 1);
}

TEST(Loader, EndsAModuleThatHangsWhenItIsAskedToEnd)
{
    test::ChildProcess loader(
        { TEST_BINARY_DIR "/skyfold.module_loader", TEST_BINARY_DIR "/modules/test_mute_module.dll", "pipe", "tag" });
    ASSERT_EQ(loader.readLine(), "mute");
    loader.signal(SIGTERM);
    EXPECT_EQ(loader.wait(), 1);
}
