// What only real processes show, beside what chaos says: how the programs of this library are started, and how they end.
#include "support/hub.h"
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>

namespace {

using test::ChildProcess;

const std::string loader = TEST_BINARY_DIR "/skyfold.module_loader";

const std::string busyModule = TEST_BINARY_DIR "/modules/test_busy_module.dll";

} // namespace

TEST(Loader, RefusesAWrongCommandLine)
{
    EXPECT_EQ(ChildProcess({ loader, "--help" }).wait(), 0);
    EXPECT_EQ(ChildProcess({ loader, "one" }).wait(), 2);
    EXPECT_EQ(ChildProcess({ loader, "/no/such/library.dll", "pipe", "tag" }).wait(), 1);
}

TEST(Loader, EndsAModuleThatHangsWhenItIsAskedToEnd)
{
    const test::Hub hub;
    ChildProcess module({ loader, busyModule, hub.pipeName, "hang" });
    ASSERT_EQ(module.readLine(), "busy");
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
        ChildProcess module { { "/bin/sh", "-c", "exec \"$0\" \"$@\" 2>&1", loader, busyModule, hub.pipeName,
            row.how } };
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
