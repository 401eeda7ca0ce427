// What can break here: a line lost or torn while other threads and processes write and rotate; a file dropped too early;
// a target that goes on writing where nobody looks; a full disk that ruins more than what it does not take.
#include "foundation/auto_ptr.h"
#include "foundation/io/file_descriptor.h"
#include "foundation/logging/log_file_target.h"
#include "support/child_process.h"
#include "support/temporary_folder.h"
#include <csignal>
#include <cstdio>
#include <deque>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <numeric>
#include <sstream>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using fn::LogFileTarget;
using testing::ElementsAre;

class LogFileTargetTest : public testing::Test {
protected:
    fn::AutoPtr<LogFileTarget> makeTarget(std::uint64_t maximumSize, int maximumCount)
    {
        auto target = fn::makeAuto<LogFileTarget>(log, clock);
        target->setMaximumSize(maximumSize);
        target->setMaximumCount(maximumCount);
        return target;
    }
    fn::String numbered(int number) const { return log + (number ? "." + fn::String::number(number) : fn::String()); }
    std::string content(int number = 0) const { return test::readFile(numbered(number)); }
    bool exists(int number) const { return ::access(numbered(number).c_str(), F_OK) == 0; }

    void lookAgain()
    {
        clock.advance(fn::Duration::milliseconds(10));
    } // Lets the targets look what has become of the log.

    test::TemporaryFolder temporary;
    const fn::String log = temporary.file("logs/name.log");
    fn::ManualClock clock;
};

TEST_F(LogFileTargetTest, KeepsTheNewestFilesAndNoneLargerThanTheMaximum)
{
    const auto target = makeTarget(10, 3);
    for (const char* entry : { "1....\n", "2\n", "3...\n", "4......\n", "5.................\n", "6\n", "7\n" }) {
        target->write(entry);
    }
    EXPECT_EQ(content(2), "4......\n");
    EXPECT_EQ(content(1), "5.................\n") << "an entry that fits nowhere has its own file";
    EXPECT_EQ(content(0), "6\n7\n");
    EXPECT_FALSE(exists(3));
    struct stat status = {};
    ASSERT_EQ(::stat(log.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);

    const auto lonely = makeTarget(10, 1);
    lonely->write("8.......\n");
    EXPECT_EQ(content(0), "8.......\n");
    EXPECT_EQ(content(1), "5.................\n");
}

TEST_F(LogFileTargetTest, DropsNothingAfterARotationThatWasBrokenOff)
{
    const auto target = makeTarget(2, 5);
    target->write("2\n");
    test::writeFile(numbered(1), "1\n");
    test::writeFile(numbered(3), "0\n");
    target->write("3\n");
    EXPECT_THAT(
        (std::vector { content(0), content(1), content(2), content(3) }), ElementsAre("3\n", "2\n", "1\n", "0\n"));
    target->write("4\n");
    EXPECT_EQ(content(4), "0\n");
}

TEST_F(LogFileTargetTest, GoesOnWritingWhateverTheHolderOfTheLockDoes)
{
    const auto target = makeTarget(2, 3);
    target->write("1\n");
    {
        const auto holder = fn::FileDescriptor::read(log);
        ASSERT_EQ(::flock(holder.get(), LOCK_EX), 0);
        target->write("2\n");
    }
    EXPECT_EQ(content(0), "1\n2\n");
    target->write("3\n");
    EXPECT_EQ(content(1), "1\n2\n");
    EXPECT_EQ(content(0), "3\n");
}

TEST_F(LogFileTargetTest, FollowsALogThatOthersHaveMovedOrRemoved)
{
    const auto target = makeTarget(0, 1), rotating = makeTarget(2, 3);
    target->write("1\n");
    rotating->write("2\n");
    target->write("3\n");
    EXPECT_EQ(content(1), "1\n3\n") << "what comes a moment too late is not lost";
    lookAgain();
    target->write("4\n");
    EXPECT_EQ(content(0), "2\n4\n");

    ASSERT_EQ(std::rename(log.c_str(), temporary.file("elsewhere").c_str()), 0);
    lookAgain();
    target->write("5\n");
    EXPECT_EQ(content(0), "5\n");

    std::filesystem::remove_all(temporary.path() / "logs");
    test::writeFile(temporary.file("logs"), "in the way");
    lookAgain();
    target->write("lost\n");
    const auto newcomer = makeTarget(0, 1);
    newcomer->write("lost, too\n");
    std::filesystem::remove(temporary.path() / "logs");
    newcomer->write("6\n");
    lookAgain();
    target->write("7\n");
    EXPECT_EQ(content(0), "(log entries lost: 1; the log took no more)\r\n6\n7\n");
}

// Files of this process end at `bytes` while this lives, as on a full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : _handler(std::signal(SIGXFSZ, SIG_IGN))
    {
        ::getrlimit(RLIMIT_FSIZE, &_before);
        const rlimit limit { bytes, _before.rlim_max };
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &_before);
        std::signal(SIGXFSZ, _handler);
    }

private:
    rlimit _before = {};
    void (*_handler)(int);
};

TEST_F(LogFileTargetTest, WritesWholeEntriesAgainOnceTheDiskHasRoom)
{
    const auto target = makeTarget(0, 1);
    {
        const FileSizeLimit limit(10);
        target->write("first\n");
        target->write("second\n");
        target->write("third\n");
    }
    target->write("fourth\n");
    target->write("fifth\n");
    EXPECT_EQ(content(), "first\nseco\r\n(log entries lost: 2; the log took no more)\r\nfourth\nfifth\n");
}

TEST_F(LogFileTargetTest, WaitsForNoReaderOfAPipeInItsPlace)
{
    std::filesystem::create_directory(temporary.path() / "logs");
    ASSERT_EQ(::mkfifo(log.c_str(), 0600), 0);
    const auto target = makeTarget(0, 1);
    target->write("1\n");
    {
        const fn::FileDescriptor reader(::open(log.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        target->write("2\n");
    }
    std::filesystem::remove(log.toStdString());
    target->write("3\n");
    EXPECT_EQ(content(), "(log entries lost: 2; the log took no more)\r\n3\n");
}

TEST_F(LogFileTargetTest, GoesOnRotatingPastAFolderInThePlaceOfAFile)
{
    const auto target = makeTarget(2, 4);
    target->write("1\n");
    std::filesystem::create_directories(numbered(2).toStdString() + "/x");
    for (const char* entry : { "2\n", "3\n", "4\n", "5\n" }) target->write(entry);
    EXPECT_THAT((std::vector { content(0), content(1), content(2) }), ElementsAre("5\n", "4\n", "3\n"));
}

// Several processes with several threads each, on one log.
class SharedLogFileTest : public LogFileTargetTest {
protected:
    static constexpr int processes = 8, threads = 4;
#if defined(__SANITIZE_THREAD__)
    static constexpr int lines = 2'000;
    static constexpr std::uint64_t largeFile = 1 << 17, smallFile = 1 << 14;
#else
    static constexpr int lines = 10'000;
    static constexpr std::uint64_t largeFile = 1 << 20, smallFile = 1 << 16;
#endif

    void writeLines(std::uint64_t maximumSize, int maximumCount)
    {
        std::deque<test::ChildProcess> children;
        for (int process = 0; process < processes; ++process) {
            children.emplace_back(std::vector<std::string> { "test_log_writer", log.toStdString(),
                std::to_string(maximumSize), std::to_string(maximumCount), std::to_string(process),
                std::to_string(threads), std::to_string(lines) });
        }
        for (auto& child : children) EXPECT_EQ(child.wait(std::chrono::seconds(60)), 0);
    }

    /// The numbers of the lines that each thread of each process finds in the files, from the oldest file on.
    using Found = std::vector<std::vector<int>>;

    Found readLines(int files)
    {
        Found found(processes * threads);
        for (int file = files - 1; file >= 0; --file) {
            std::istringstream text(content(file));
            for (std::string line; std::getline(text, line);) {
                int process = 0, thread = 0, number = 0;
                const int fields = std::sscanf(line.c_str(), "%d %d %d", &process, &thread, &number);
                const std::string filling(static_cast<std::size_t>(number % 90), 'x');
                const bool whole = fields == 3 && line == fmt::format("{} {} {} {}.", process, thread, number, filling);
                EXPECT_TRUE(whole) << "torn: " << line;
                if (whole) found.at(static_cast<std::size_t>(process * threads + thread)).push_back(number);
            }
        }
        return found;
    }

    int countFiles() const
    {
        int files = 0;
        while (exists(files)) ++files;
        return files;
    }
};

// The last `size` of the lines that a thread has written.
std::vector<int> lastLines(int lines, std::size_t size)
{
    std::vector<int> numbers(size);
    std::iota(numbers.begin(), numbers.end(), lines - static_cast<int>(size));
    return numbers;
}

TEST_F(SharedLogFileTest, LosesNoLineWhileProcessesAndThreadsRotateIt)
{
    writeLines(smallFile, 100'000);
    const int files = countFiles();
    EXPECT_GT(files, 50);
    for (const auto& numbers : readLines(files)) EXPECT_EQ(numbers, lastLines(lines, lines));
}

TEST_F(SharedLogFileTest, LosesOnlyWhatIsTooOld)
{
    writeLines(largeFile, 9);
    const int files = countFiles();
    EXPECT_EQ(files, 9);
    for (const auto& numbers : readLines(files)) EXPECT_EQ(numbers, lastLines(lines, numbers.size()));
}

} // namespace
