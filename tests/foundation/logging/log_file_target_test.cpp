// What can break here: a line lost or torn while others write and rotate; a file dropped too early; a full disk that ruins more.
#include "base/auto_ptr.h"
#include "foundation/logging/log_file_target.h"
#include "support/forked_child.h"
#include "support/temporary_folder.h"
#include <csignal>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <gmock/gmock.h>
#include <map>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using fn::LogFileTarget;
using testing::ElementsAre;

struct LogFileTargetTest : testing::Test {
    fn::AutoPtr<LogFileTarget> makeTarget(std::uint64_t maximumSize, int maximumCount)
    {
        auto target = fn::makeAuto<LogFileTarget>(log, clock);
        target->setMaximumSize(maximumSize);
        target->setMaximumCount(maximumCount);
        return target;
    }

    fn::String numbered(int number) const { return log + (number ? "." + fn::String::number(number) : fn::String()); }

    /// The contents of the log and of those before it, up to the first that is missing.
    std::vector<std::string> files() const
    {
        std::vector<std::string> result;
        for (int number = 0; std::filesystem::is_regular_file(numbered(number).view()); ++number)
            result.push_back(test::readFile(numbered(number)));
        return result;
    }

    test::TemporaryFolder temporary;
    const fn::String log = temporary.file("logs/name.log");
    fn::ManualClock clock;
};

TEST_F(LogFileTargetTest, KeepsTheNewestFilesAndNoneLargerThanTheMaximum)
{
    const auto target = makeTarget(10, 3);
    for (const char* entry : { "1....\n", "2\n", "3...\n", "4......\n", "5.................\n", "6\n", "7\n" })
        target->write(entry);
    EXPECT_THAT(files(), ElementsAre("6\n7\n", "5.................\n", "4......\n"))
        << "an entry that fits nowhere has its own file";
    EXPECT_EQ(std::filesystem::status(log.view()).permissions(), std::filesystem::perms(0600));
    makeTarget(10, 1)->write("8.......\n");
    EXPECT_THAT(files(), ElementsAre("8.......\n", "5.................\n", "4......\n"));
}

TEST_F(LogFileTargetTest, FollowsALogThatOthersHaveMovedOrRemovedAndWaitsForNothingInItsPlace)
{
    const auto target = makeTarget(0, 1), rotating = makeTarget(2, 3);
    const auto writeLater = [&](const char* entry) {
        clock.advance(fn::Duration::milliseconds(10)); // Now they look what has become of it.
        target->write(entry);
    };
    target->write("1\n");
    rotating->write("2\n");
    target->write("3\n");
    writeLater("4\n");
    EXPECT_THAT(files(), ElementsAre("2\n4\n", "1\n3\n")) << "what comes a moment too late is not lost";

    std::filesystem::remove_all(temporary.path() / "logs");
    test::writeFile(temporary.file("logs"), "in the way");
    writeLater("lost\n");
    const auto newcomer = makeTarget(0, 1);
    newcomer->write("lost, too\n");
    std::filesystem::remove(temporary.path() / "logs");
    std::filesystem::create_directory(temporary.path() / "logs");
    ASSERT_EQ(::mkfifo(log.c_str(), 0600), 0);
    newcomer->write("lost without a reader\n");
    std::filesystem::remove_all(temporary.path() / "logs");
    newcomer->write("6\n");
    writeLater("7\n");
    EXPECT_THAT(files(), ElementsAre("(log entries lost: 2; the log took no more)\r\n6\n7\n"));
}

TEST_F(LogFileTargetTest, WritesWholeEntriesAgainOnceTheDiskHasRoom)
{
    const auto target = makeTarget(0, 1);
    auto* const handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const rlimit full { 10, before.rlim_max }; // Files of this process end there, as on a full disk.
    ::setrlimit(RLIMIT_FSIZE, &full);
    for (const char* entry : { "first\n", "second\n", "third\n" }) target->write(entry);
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    target->write("fourth\n");
    target->write("fifth\n");
    EXPECT_THAT(files(), ElementsAre("first\nseco\r\n(log entries lost: 2; the log took no more)\r\nfourth\nfifth\n"));
}

TEST_F(LogFileTargetTest, LosesNothingWhileManyThreadsOfManyProcessesRotateIt)
{
    constexpr int processes = 8, threads = 4;
    constexpr int lines = 5'000;
    const auto lineOf = [](int process, int thread, int number) {
        return fmt::format("{} {} {} {:x<{}}.\n", process, thread, number, "", number % 90);
    };
    std::deque<test::ForkedChild> children;
    for (int process = 0; process < processes; ++process) {
        children.emplace_back([&, process] {
            const auto target = makeTarget(lines * 6, 100'000);
            std::vector<std::jthread> writers;
            for (int thread = 0; thread < threads; ++thread) {
                writers.emplace_back([&, thread] {
                    for (int line = 0; line < lines; ++line) target->write(lineOf(process, thread, line));
                });
            }
            return true;
        });
    }
    for (auto& child : children) EXPECT_TRUE(child.succeeds());

    const auto contents = files();
    EXPECT_GT(contents.size(), 50U);
    std::map<std::pair<int, int>, int> next; // By process and thread.
    for (auto content = contents.rbegin(); content != contents.rend(); ++content) {
        std::istringstream text(*content);
        for (std::string line; std::getline(text, line);) {
            int process = 0, thread = 0, number = 0;
            std::sscanf(line.c_str(), "%d %d %d", &process, &thread, &number);
            ASSERT_EQ(line + '\n', lineOf(process, thread, number)) << "torn";
            ASSERT_EQ(number, (next[{ process, thread }]++)) << "lost, or out of order";
        }
    }
    EXPECT_EQ(next.size(), processes * threads);
    for (const auto& [writer, end] : next) EXPECT_EQ(end, lines);
}

} // namespace
