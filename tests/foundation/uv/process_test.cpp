// What can break here: an exit not reported, a zombie, descriptors that leak into children.
#include "base/auto_ptr.h"
#include "base/exceptions.h"
#include "foundation/uv/run_process.h"
#include "support/child_process.h"
#include "support/run_until.h"
#include <csignal>
#include <gmock/gmock.h>
#include <unistd.h>

namespace {

using fn::uv::Loop;
using fn::uv::Process;
using fn::uv::ProcessOptions;
using test::runTurns;
using test::runUntil;
using testing::ElementsAre;
using Exit = std::pair<std::int64_t, int>;

struct ProcessTest : testing::Test {
    std::unique_ptr<Loop> loop = std::make_unique<Loop>();
    std::vector<Exit> exits;

    fn::AutoPtr<Process> makeProcess() { return fn::makeAuto<Process>(*loop); }

    ProcessOptions shell(const fn::String& script)
    {
        ProcessOptions options;
        options.file = "/bin/sh";
        options.arguments = { "sh", "-c", script };
        options.streams = { { 2, -10 }, { 2, -11 }, { 2, -12 } };
        options.onExit = [this](std::int64_t status, int signal) { exits.emplace_back(status, signal); };
        return options;
    }

    bool awaitExits(std::size_t count)
    {
        return runUntil(*loop, [&] { return exits.size() == count; });
    }
};

TEST_F(ProcessTest, TheExitIsReportedOnceWithItsSignalThoughTheLastReferenceGoesThere)
{
    auto process = makeProcess();
    auto options = shell("kill -STOP $$; exit 1");
    options.onExit = [&](std::int64_t status, int signal) {
        exits.emplace_back(status, signal);
        process->kill(SIGKILL); // Nobody is there any more.
        process.reset(); // The last reference.
    };
    process->spawn(std::move(options));
    process->kill(SIGKILL);
    EXPECT_TRUE(awaitExits(1));
    EXPECT_THAT(exits, ElementsAre(Exit(0, SIGKILL)));
}

TEST_F(ProcessTest, AReleasedOneIsReapedAndItsCallbackForgottenAndOneThatOutlivesItsLoopLivesOn)
{
    auto process = makeProcess();
    process->spawn(shell("kill -STOP $$; exit 1"));
    auto pid = process->pid();
    process.reset();
    runTurns(*loop);
    EXPECT_EQ(::kill(pid, SIGKILL), 0) << "It lives on.";
    EXPECT_TRUE(runUntil(*loop, [&] { return ::kill(pid, 0) != 0; })) << "A zombie is left.";

    process = makeProcess();
    process->spawn(shell("kill -STOP $$"));
    pid = process->pid();
    loop.reset();
    process->kill(SIGTERM); // Not ours any more.
    EXPECT_EQ(::kill(pid, SIGKILL), 0);
    EXPECT_EQ(test::awaitEnd(pid), 128 + SIGKILL);
    EXPECT_TRUE(exits.empty());
}

TEST_F(ProcessTest, OneThatIsAwaitedTellsItsEndAndEndsWhenNobodyWaitsAnyMore)
{
    fn::uv::ProcessExit exit;
    std::exception_ptr failure;
    loop->post([&] {
        fn::uv::runProcess(*loop, {}).then([](auto&&) {}, [&](auto&& missing) { failure = missing; });
        fn::uv::runProcess(*loop, shell("exec sleep 60")).cancel();
        fn::uv::runProcess(*loop, shell("exit 3")).then([&](auto&& end) { exit = end; });
    });
    EXPECT_TRUE(runUntil(*loop, [&] { return exit.status == 3 && failure; }));
    EXPECT_TRUE(Process::awaitAll(*loop, fn::Duration::seconds(20)));
}

TEST_F(ProcessTest, AChildInheritsItsThreeStreamsAndNothingElse)
{
    const int leak = ::dup(STDERR_FILENO); // Not close-on-exec, as in somebody else's library.
    const auto process = makeProcess();
    auto options =
        shell("i=0; while [ $i -lt 64 ]; do [ -e /proc/$$/fd/$i ] && printf \"$i \"; i=$((i+1)); done; echo end >&2");
    options.streams = { { 0, 0 }, { 2, STDOUT_FILENO }, { .handle = -12 } };
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    process->spawn(std::move(options));
    EXPECT_TRUE(awaitExits(1));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "0 1 2 ");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "end\n");
    ::close(leak);
}

} // namespace
