// What can break here: a thread that waits for a reader who never reads, an entry that is lost without a word.
#include "base/file_descriptor.h"
#include "foundation/logging/log_console_target.h"
#include "foundation/uv/loop.h"
#include "support/child_process.h"
#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr int entries = 5'000; // More than any of these holds.
const std::string entry(99, 'x');

using Pair = std::pair<fn::FileDescriptor, fn::FileDescriptor>; // The reader's end and that of standard error.

Pair pipeEnds()
{
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    return { fn::FileDescriptor(ends[0]), fn::FileDescriptor(ends[1]) };
}

Pair terminalEnds()
{
    fn::FileDescriptor master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    EXPECT_EQ(::grantpt(master.get()) + ::unlockpt(master.get()), 0);
    return { std::move(master), fn::FileDescriptor(::open(::ptsname(master.get()), O_RDWR | O_NOCTTY | O_CLOEXEC)) };
}

using Kind = std::pair<Pair (*)(), bool>; // What it is, and whether it can be opened anew.

struct StandardError : testing::TestWithParam<Kind> {
    StandardError()
    {
        ::dup2(ends.second.get(), STDERR_FILENO);
        ::getrlimit(RLIMIT_NOFILE, &_limit);
        const rlimit none { STDERR_FILENO + 1, _limit.rlim_max };
        if (!GetParam().second) ::setrlimit(RLIMIT_NOFILE, &none); // Nothing can be opened any more.
    }
    ~StandardError() override
    {
        ::setrlimit(RLIMIT_NOFILE, &_limit);
        ::dup2(_before.get(), STDERR_FILENO);
    }

    /// Adds what comes to `text`; false if nothing does within the bound.
    bool readSome(std::string& text, std::chrono::seconds bound) const
    {
        if (!test::awaitReadable(ends.first.get(), bound)) return false;
        char buffer[65536];
        const auto count = ::read(ends.first.get(), buffer, sizeof buffer);
        text.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        std::erase(text, '\r'); // The terminal's.
        return true;
    }

    fn::uv::Loop loop;
    const Pair ends = GetParam().first();
    const fn::AutoPtr<fn::LogConsoleTarget> target = fn::makeAuto<fn::LogConsoleTarget>();
    const fn::FileDescriptor _before { ::dup(STDERR_FILENO) };
    rlimit _limit = {};
};

TEST_P(StandardError, HoldsUpNobodyAndTellsWhatIsLost)
{
    const auto writeMany = [&] {
        for (int i = 0; i < entries; ++i) target->write(entry + "\n");
        loop.stop();
    };
    loop.post(writeMany);
    loop.run();
    writeMany(); // On a thread without a loop.
    EXPECT_EQ(::fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK, 0);

    std::string text;
    int written = 2 * entries;
    for (; !text.contains(" lost") && written < 3 * entries; ++written) {
        while (readSome(text, std::chrono::seconds(0))) { }
        target->write(entry + "\n");
    }
    target->write("end\n");
    while (!text.ends_with("end\n") && readSome(text, std::chrono::seconds(20))) { }
    int whole = 0, lost = 0, notices = 0; // Some for entries that came when there was room for a notice only.
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        whole += line == entry;
        int count = 0;
        notices += std::sscanf(line.c_str(), "(log entries lost: %d; standard error took no more)", &count);
        lost += count;
    }
    EXPECT_GT(lost, 0) << text.size();
    EXPECT_GE(whole + lost, written);
    EXPECT_LE(whole + lost, written + notices) << "an entry before a notice may lack its line end only";
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, StandardError, testing::Values(Kind(pipeEnds, true), Kind(pipeEnds, false), Kind(terminalEnds, true)));

} // namespace
