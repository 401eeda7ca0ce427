// What only real processes show, beside what chaos says: that none is left behind, how each is started and how it ends.
#include "foundation/uv/loop.h"
#include "support/hub.h"
#include "support/run_until.h"
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>

namespace {

using test::ChildProcess;

const std::string loader = TEST_BINARY_DIR "/skyfold.module_loader";

std::string moduleFile(const char* name) { return TEST_BINARY_DIR "/modules/" + std::string(name) + ".dll"; }

bool ends(pid_t pid)
{
    fn::uv::Loop loop;
    return test::runUntil(loop, [&] { return !test::isRunning(pid); });
}

/// The process of the main program's module, each time that it connects.
pid_t nextModule(ChildProcess& program) { return std::stoi(program.readLine().value_or("0")); }

} // namespace

TEST(MainProgram, StartsAKilledOrHangingModuleAgainAndTakesItAlongWhenItDies)
{
    ChildProcess program { { "test_main_program" } };
    auto module = nextModule(program);
    for (const int signal : { SIGKILL, SIGSTOP, SIGTERM }) {
        SCOPED_TRACE(strsignal(signal));
        ASSERT_TRUE(module > 0 && test::isRunning(module));
        kill(module, signal);
        const auto next = nextModule(program);
        EXPECT_NE(next, module);
        EXPECT_TRUE(ends(module));
        module = next;
    }
    program.signal(SIGKILL);
    EXPECT_TRUE(ends(module));
}

TEST(MainProgram, StartedWithoutStandardStreamsPassesEmptyOnesOn)
{
    const std::string path = TEST_BINARY_DIR "/programs/test_main_program";
    ChildProcess program { { "/bin/sh", "-c", "exec \"$0\" <&- 2>&-", path } };
    const auto folder = "/proc/" + std::to_string(nextModule(program)) + "/fd/";
    for (const char* stream : { "0", "2" }) {
        EXPECT_EQ(std::filesystem::read_symlink(folder + stream), "/dev/null") << stream;
    }
}

TEST(Loader, RefusesAWrongCommandLine)
{
    EXPECT_EQ(ChildProcess({ loader, "--help" }).wait(), 0);
    EXPECT_EQ(ChildProcess({ loader, "one" }).wait(), 2);
    EXPECT_EQ(ChildProcess({ loader, "/no/such/library.dll", "pipe", "tag" }).wait(), 1);
}

TEST(Loader, EndsAModuleThatHangsWhenItIsAskedToEnd)
{
    ChildProcess module({ loader, moduleFile("test_mute_module"), "pipe", "tag" });
    ASSERT_EQ(module.readLine(), "mute");
    module.signal(SIGTERM);
    EXPECT_EQ(module.wait(), 1);
}

TEST(Hub, TakesItsOptionsRefusesOthersAndLeavesNoEndpointBehind)
{
    EXPECT_EQ(ChildProcess({ "hub", "--help" }).wait(), 0);
    EXPECT_NE(ChildProcess({ "hub", "--timeout-ms", "never" }).wait(), 0);
    for (const int signal : { SIGINT, SIGTERM }) {
        test::Hub hub;
        hub.signal(signal);
        EXPECT_EQ(hub.wait(), 0);
        EXPECT_FALSE(std::filesystem::exists(hub.socket));
    }
}

TEST(ModuleEnd, CallsUnderWayEndBeforeTheModuleDoesAndNobodyComplains)
{
    struct Row {
        const char* how;
        int toModule, toHub; ///< Signals.
    };
    const Row rows[] { { "asked", SIGTERM, 0 }, { "the hub is asked", 0, SIGTERM }, { "terminate", 0, 0 },
        { "the hub is killed", 0, SIGKILL } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.how);
        const test::Hub hub;
        ChildProcess module { { "/bin/sh", "-c", "exec \"$0\" \"$@\" 2>&1", loader, moduleFile("test_busy_module"),
            hub.pipeName, row.how } };
        ASSERT_EQ(module.readLine(), "busy");
        if (row.toModule) module.signal(row.toModule);
        if (row.toHub) hub.signal(row.toHub);
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
