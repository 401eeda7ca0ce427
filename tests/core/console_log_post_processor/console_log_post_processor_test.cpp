// What can break here: a line torn, lost, doubled or out of order; a reader that stops or ends the process, so that
// everybody who writes to standard error waits for ever; descriptors that reach other programs. The redirection belongs to
// the process, so each case runs in one of its own.
#include "base/file_descriptor.h"
#include "core/services/console_log_post_processor.h"
#include "support/forked_child.h"
#include <atomic>
#include <csignal>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using core::ConsoleLogPostProcessor;
using namespace std::string_literals;

/// Has `condition` come true; false beyond a bound.
template <typename Condition> bool await(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition() && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    return condition();
}

/// Does `body` in a process made of this one (which has one thread), with a file as its standard error. What the file holds
/// once it ends in `end`; the process fails where expectations have failed in it.
std::string outputOf(const std::function<void()>& body, const std::string& end = "")
{
    const fn::FileDescriptor file(::memfd_create("output", MFD_CLOEXEC));
    const auto size = [&] { // Seeking would move the place where the other side is writing.
        struct stat status { };
        ::fstat(file.get(), &status);
        return static_cast<std::size_t>(status.st_size);
    };
    const auto lastBytes = [&](std::size_t count) {
        std::string text(count, '\0');
        (void)::pread(file.get(), text.data(), count, static_cast<off_t>(size()) - static_cast<off_t>(count));
        return text;
    };
    test::ForkedChild process([&] {
        std::signal(SIGPIPE, SIG_DFL);
        ::dup2(file.get(), STDERR_FILENO);
        body();
        const bool isWhole = await([&] { return lastBytes(end.size()) == end; });
        std::fflush(stdout);
        return isWhole && !testing::Test::HasFailure();
    });
    EXPECT_TRUE(process.succeeds());
    return lastBytes(size());
}

void print(std::string_view text)
{
    while (!text.empty()) {
        const auto count = ::write(STDERR_FILENO, text.data(), text.size());
        ASSERT_GT(count, 0);
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

void bracket(fn::String& line) { line = "[" + line.trim(false) + "]\n"; } // Shows what came as one line.
void star(fn::String& line) { line = line.trim(false) + "*\n"; }
void hideSecrets(fn::String& line)
{
    if (line.contains("secret")) line = "";
}
void failOnBad(fn::String& line)
{
    if (line.startsWith("bad")) throw std::runtime_error("refused");
    if (line.startsWith("worse")) throw 1;
}

std::atomic<int> seen = 0;
void count(fn::String&) { ++seen; }

void init(std::initializer_list<void (*)(fn::String&)> callbacks)
{
    for (const auto callback : callbacks) ConsoleLogPostProcessor::registerStandardErrorCallback(callback);
    ConsoleLogPostProcessor::init();
}

TEST(ConsoleLogPostProcessor, EachLineMeetsTheCallbacksInTheirOrderAlsoWhereTheyThrow)
{
    const auto body = [] {
        init({ failOnBad, bracket, hideSecrets, star });
        print("abc");
        print("def\nsecond\n\na secret\nthi");
        print("rd\n");
        print("bad\nworse\n");
        ConsoleLogPostProcessor::quit(fn::Duration::seconds(20));
        print("as before\n");
    };
    // A line that is emptied is so for the callbacks behind, too; what they make of it counts.
    EXPECT_EQ(outputOf(body, "as before\n"),
        "[abcdef]*\n[second]*\n[]*\n*\n[third]*\n"
        "A line of standard error could not be processed: refused\n[bad]*\n"
        "A line of standard error could not be processed: exception of an unknown type\n[worse]*\nas before\n");
}

TEST(ConsoleLogPostProcessor, OutlivesItsReaderAndAMissingStandardError)
{
    for (const bool hasOne : { false, true }) {
        outputOf([&] {
            int ends[2];
            ASSERT_EQ(::pipe(ends), 0);
            ::dup2(ends[1], STDERR_FILENO);
            for (const int end : ends) ::close(end); // Its reader has gone.
            if (!hasOne) ::close(STDERR_FILENO);
            init({ count });
            for (int line = 1; line <= 3; ++line) {
                print("nobody reads this\n");
                EXPECT_TRUE(await([&] { return seen == line; }));
            }
        });
    }
}

TEST(ConsoleLogPostProcessor, TakesLinesThatNoPipeHolds)
{
    const auto body = [] {
        init({ bracket });
        std::string many; // Several in a piece of what is read, and some on the border of two.
        for (int line = 0; line < 20'000; ++line) many += fmt::format("{}\n", line);
        print(many + "END\n");
    };
    const auto output = fn::String(outputOf(body, "[END]\n")).split('\n');
    ASSERT_EQ(output.size(), 20'001u);
    for (unsigned line = 0; line < 20'000; ++line) ASSERT_EQ(output[line], fmt::format("[{}]", line));
}

} // namespace
