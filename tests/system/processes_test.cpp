// What only real processes show, beside what chaos says: how the programs of this library are started, and how they end.
#include "support/hub.h"
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

using test::ChildProcess;

const std::string loader = TEST_BINARY_DIR "/skyfold.module_loader";

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
    ChildProcess module({ loader, TEST_BINARY_DIR "/modules/test_busy_module.dll", hub.pipeName, "tag" });
    ASSERT_EQ(module.readLine(), "busy");
    module.signal(SIGTERM);
    EXPECT_EQ(module.wait(), 1);
}

TEST(Hub, TakesItsOptionsRefusesOthersAndLeavesNoEndpointBehind)
{
    EXPECT_EQ(ChildProcess({ "skyfold-hub", "--help" }).wait(), 0);
    EXPECT_NE(ChildProcess({ "skyfold-hub", "--timeout-ms", "never" }).wait(), 0);
    for (const int signal : { SIGINT, SIGTERM }) {
        test::Hub hub;
        hub.signal(signal);
        EXPECT_EQ(hub.wait(), 0);
        EXPECT_FALSE(std::filesystem::exists(hub.socket));
    }
}
