// What can break here: an exit that is not reported or reported to somebody who has gone, a zombie, descriptors that leak
// into children, two libraries that wait for children in one process.
#include "foundation/auto_ptr.h"
#include "foundation/exceptions.h"
#include "foundation/uv/process.h"
#include "foundation/uv/signal_watcher.h"
#include "support/run_until.h"
#include "support/temporary_folder.h"
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <glib.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using fn::uv::Loop;
using fn::uv::Process;
using fn::uv::ProcessOptions;
using fn::uv::ProcessStream;
using test::runTurns;
using test::runUntil;
using testing::ElementsAre;

struct ProcessTest : testing::Test {
    Loop loop;
    std::vector<std::pair<std::int64_t, int>> exits;

    ProcessOptions shell(const fn::String& script)
    {
        ProcessOptions options;
        options.file = "/bin/sh";
        options.arguments = { "sh", "-c", script };
        options.streams = { { 2, -10 }, { 2, -11 }, { 2, -12 } };
        options.onExit = [this](std::int64_t status, int signal) { exits.emplace_back(status, signal); };
        return options;
    }

    bool exists(int pid) const { return ::kill(pid, 0) == 0; } // Also as a zombie.
};

TEST_F(ProcessTest, TheExitIsReportedOnceWithItsStatusOrSignal)
{
    const auto ended = fn::makeAuto<Process>(loop);
    auto options = shell("exit 7");
    options.flags = 0x90;
    ended->spawn(std::move(options));
    EXPECT_EQ(ended->flags(), 0x90U);
    EXPECT_TRUE(runUntil(loop, [&] { return exits.size() == 1; }));
    ended->kill(SIGKILL); // Nobody is there any more.
    EXPECT_THROW(ended->spawn(shell("exit 0")), fn::IOException);

    auto killed = fn::makeAuto<Process>(loop);
    options = shell("read line");
    options.streams = {};
    options.onExit = [&](std::int64_t status, int signal) {
        exits.emplace_back(status, signal);
        killed.reset(); // The last reference.
    };
    options.arguments = { "sh", "-c", "kill -STOP $$; exit 1" };
    killed->spawn(std::move(options));
    killed->kill(SIGKILL);
    EXPECT_TRUE(runUntil(loop, [&] { return exits.size() == 2; }));
    using Exit = std::pair<std::int64_t, int>;
    EXPECT_THAT(exits, ElementsAre(Exit(7, 0), Exit(0, SIGKILL)));
}

TEST_F(ProcessTest, AFileThatCanNotBeStartedIsNamedAndLeavesNothingBehind)
{
    const auto process = fn::makeAuto<Process>(loop);
    auto options = shell("");
    options.file = "/no/such/program";
    try {
        process->spawn(std::move(options));
        FAIL();
    } catch (const fn::IOException& exception) {
        EXPECT_THAT(exception.what(), testing::HasSubstr("/no/such/program"));
        ASSERT_TRUE(exception.find<fn::UVErrnoInfo>());
        EXPECT_EQ(*exception.find<fn::UVErrnoInfo>(), -ENOENT);
    }
    process->kill(SIGTERM);
    runTurns(loop);
    EXPECT_TRUE(exits.empty());
}

TEST_F(ProcessTest, AReleasedProcessIsReapedAndItsCallbackForgotten)
{
    test::TemporaryFolder folder;
    const auto fifo = folder.file("gate");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    auto process = fn::makeAuto<Process>(loop);
    process->spawn(shell("read line < " + fifo));
    const auto pid = process->pid();
    process.reset();
    EXPECT_TRUE(exists(pid)); // It lives on.
    std::ofstream(fifo.toStdString()) << "go\n";
    EXPECT_TRUE(runUntil(loop, [&] { return !exists(pid); }));
    EXPECT_TRUE(exits.empty());
}

TEST_F(ProcessTest, AChildInheritsItsThreeStreamsAndNothingElse)
{
    test::TemporaryFolder folder;
    const auto path = folder.file("output");
    const int output =
        ::open(path.c_str(), O_WRONLY | O_CREAT, 0600); // Not close-on-exec, as in somebody else's library.
    ASSERT_GE(output, 3);
    const int leak = ::dup(output);
    const auto process = fn::makeAuto<Process>(loop);
    auto options =
        shell("i=0; while [ $i -lt 64 ]; do [ -e /proc/$$/fd/$i ] && printf \"$i \"; i=$((i+1)); done; exit 0");
    options.streams = { { 0, 0 }, { 2, output }, { 2, -12 } };
    process->spawn(std::move(options));
    EXPECT_TRUE(runUntil(loop, [&] { return exits.size() == 1; }));
    std::string line;
    std::getline(std::ifstream(path.toStdString()) >> std::ws, line);
    EXPECT_EQ(line, "0 1 2 ");
    ::close(leak);
    ::close(output);
}

TEST_F(ProcessTest, GlibMayWaitForItsOwnChildrenInTheSameProcess)
{
    const char* const arguments[] = { "/bin/sh", "-c", "exit 3", nullptr };
    GPid pid = 0;
    ASSERT_TRUE(g_spawn_async(
        nullptr, const_cast<char**>(arguments), nullptr, G_SPAWN_DO_NOT_REAP_CHILD, nullptr, nullptr, &pid, nullptr));
    int glibStatus = -1;
    g_child_watch_add(
        pid, [](GPid, gint status, gpointer result) { *static_cast<int*>(result) = status; }, &glibStatus);
    std::vector<fn::AutoPtr<Process>> processes;
    for (int i = 0; i < 3; ++i) {
        processes.push_back(fn::makeAuto<Process>(loop));
        processes.back()->spawn(shell("exit 5"));
    }
    EXPECT_TRUE(runUntil(loop, [&] {
        g_main_context_iteration(nullptr, FALSE);
        return exits.size() == 3 && glibStatus >= 0;
    }));
    EXPECT_EQ(WEXITSTATUS(glibStatus), 3);
}

TEST(SignalWatcher, HearsItsSignalWhileItLivesAndMayOutliveItsLoop)
{
    auto loop = std::make_unique<Loop>();
    int heard = 0;
    bool isInside = false;
    std::optional<fn::uv::SignalWatcher> first;
    const auto second = std::make_unique<fn::uv::SignalWatcher>(*loop, SIGUSR1, [&] {
        if (++heard != 3) return;
        isInside = true;
        ::raise(SIGUSR1); // Heard inside of this.
        EXPECT_TRUE(runUntil(*loop, [&] { return heard == 4; }));
        isInside = false;
    });
    first.emplace(*loop, SIGUSR1, [&] {
        ++heard;
        first.reset();
    });
    EXPECT_THROW(fn::uv::SignalWatcher(*loop, SIGKILL, [] {}), fn::IOException);
    for (const int expected : { 2, 4 }) {
        ::raise(SIGUSR1);
        EXPECT_TRUE(runUntil(*loop, [&] { return heard == expected && !isInside; }));
    }
    loop.reset();
}

TEST(Process, OutlivesItsLoopUnharmed)
{
    auto loop = std::make_unique<Loop>();
    const auto token = std::make_shared<int>();
    const auto process = fn::makeAuto<Process>(*loop);
    ProcessOptions options;
    options.file = "/bin/sleep";
    options.arguments = { "sleep", "1000" };
    options.onExit = [token](std::int64_t, int) { FAIL() << "nothing runs while the loop ends"; };
    process->spawn(std::move(options));
    const auto pid = process->pid();
    loop.reset();
    EXPECT_EQ(token.use_count(), 1);
    process->kill(SIGKILL); // Not ours any more.
    ASSERT_EQ(::kill(pid, SIGKILL), 0);
    EXPECT_EQ(::waitpid(pid, nullptr, 0), pid);
}

} // namespace
