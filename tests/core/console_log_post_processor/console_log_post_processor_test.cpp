// What can break here: a line torn, lost, doubled or out of order; a reader that stops or ends the process, so that
// everybody who writes to standard error waits for ever; descriptors that reach other programs. The redirection belongs to
// the process, so each case runs in one of its own.
#include "core/console_log_post_processor.h"
#include "redirected_process.h"
#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <map>
#include <poll.h>
#include <sstream>
#include <thread>
#include <unistd.h>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <sanitizer/common_interface_defs.h>
#endif

namespace {

using core::ConsoleLogPostProcessor;
using namespace std::string_literals;
using testing::HasSubstr;

void print(std::string_view text)
{
    while (!text.empty()) {
        const auto count = ::write(STDERR_FILENO, text.data(), text.size());
        ASSERT_GT(count, 0);
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) result.push_back(line);
    return result;
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
void awaitSeen(int lines)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (seen < lines && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    EXPECT_GE(seen, lines);
}

void init(std::initializer_list<void (*)(fn::String&)> callbacks)
{
    for (const auto callback : callbacks) ConsoleLogPostProcessor::registerStandardErrorCallback(callback);
    ConsoleLogPostProcessor::init();
}

TEST(ConsoleLogPostProcessor, LeavesLinesAloneWithoutCallbacks)
{
    const auto text = "one\n\n\r\n a\0b \xFF\x80\nEND\n"s;
    test::RedirectedProcess process([&] {
        ConsoleLogPostProcessor::init();
        for (const char& byte : text) print({ &byte, 1 });
    });
    EXPECT_EQ(process.readUntil("END\n"), text);
    EXPECT_EQ(process.finish(), 0);
}

TEST(ConsoleLogPostProcessor, EachLineMeetsTheCallbacksInTheirOrder)
{
    test::RedirectedProcess process([] {
        init({ count, star, bracket, hideSecrets, star });
        print("abc");
        print("def\nsecond\n\na secret\nthi");
        print("rd\n");
        awaitSeen(5);
        ConsoleLogPostProcessor::unregisterStandardErrorCallback(star);
        print("fourth\n");
        awaitSeen(6);
        print("a secret\n"); // Empty in the end: not written.
        awaitSeen(7);
        ConsoleLogPostProcessor::unregisterStandardErrorCallback(hideSecrets);
        ConsoleLogPostProcessor::registerStandardErrorCallback(star);
        print("fifth, secret\nEND\n");
    });
    // A line that is emptied is so for the callbacks behind, too; what they make of it counts.
    EXPECT_EQ(process.readUntil("[END]*\n"),
        "[abcdef*]*\n[second*]*\n[*]*\n*\n[third*]*\n[fourth]\n[fifth, secret]*\n[END]*\n");
    EXPECT_EQ(process.finish(), 0);
}

TEST(ConsoleLogPostProcessor, KeepsTheLinesOfManyThreadsWhole)
{
    constexpr int threads = 8;
    constexpr int lines = 500;
    const auto lineOf = [](int thread, int number) {
        return fmt::format("{} {} {}.", thread, number, std::string(static_cast<unsigned>(number), 'x'));
    };
    test::RedirectedProcess process([&] {
        init({ bracket });
        {
            std::vector<std::jthread> writers;
            for (int thread = 0; thread < threads; ++thread) {
                writers.emplace_back([&, thread] {
                    for (int line = 0; line < lines; ++line) print(lineOf(thread, line) + "\n");
                });
            }
        }
        print("END\n");
    });
    std::vector<int> next(threads, 0);
    const auto output = linesOf(process.readUntil("[END]\n"));
    ASSERT_EQ(output.size(), threads * lines + 1u);
    for (const auto& line : output) {
        if (line == "[END]") continue;
        const int thread = line[1] - '0';
        ASSERT_TRUE(thread >= 0 && thread < threads) << line;
        const int number = next[static_cast<unsigned>(thread)]++;
        EXPECT_EQ(line, "[" + lineOf(thread, number) + "]");
    }
    EXPECT_EQ(process.finish(), 0);
}

TEST(ConsoleLogPostProcessor, TakesLinesThatNoPipeHolds)
{
    const std::string large(1024 * 1024, 'x');
    const std::string endless(70 * 1024 * 1024, 'y');
    test::RedirectedProcess process([&] {
        init({ bracket });
        print("a\n" + large + "\nb\n" + endless + "\nEND\n");
    });
    const auto output = linesOf(process.readUntil("[END]\n"));
    ASSERT_EQ(output.size(), 6u);
    EXPECT_EQ(output[0], "[a]");
    EXPECT_TRUE(output[1] == "[" + large + "]") << output[1].size();
    EXPECT_EQ(output[2], "[b]");
    // Passed on in two pieces, for fear of filling the memory.
    EXPECT_GE(output[3].size(), 64u * 1024 * 1024);
    EXPECT_EQ(output[3].size() + output[4].size(), endless.size() + 4);
    EXPECT_EQ(process.finish(), 0);
}

TEST(ConsoleLogPostProcessor, WaitsForAReaderThatIsSlowAlsoWhereWritingDoesNotBlock)
{
    const std::string large(1024 * 1024, 'x');
    test::RedirectedProcess process([&] {
        ASSERT_EQ(::fcntl(STDERR_FILENO, F_SETFL, O_WRONLY | O_NONBLOCK), 0);
        ConsoleLogPostProcessor::init();
        print(large + "\nEND\n");
    });
    EXPECT_TRUE(process.awaitFullPipe());
    EXPECT_TRUE(process.readUntil("END\n") == large + "\nEND\n");
    EXPECT_EQ(process.finish(), 0);
}

TEST(ConsoleLogPostProcessor, OutlivesItsReaderAndAMissingStandardError)
{
    test::RedirectedProcess unread([] {
        pollfd output { STDERR_FILENO, 0, 0 };
        ASSERT_EQ(::poll(&output, 1, 20'000), 1); // Its reader has gone.
        init({ count });
        for (int line = 1; line <= 3; ++line) {
            print("nobody reads this\n");
            awaitSeen(line);
        }
    });
    unread.closeReader();
    EXPECT_EQ(unread.finish(), 0);

    test::RedirectedProcess closed([] {
        ::close(STDERR_FILENO);
        init({ count });
        print("nor this\n");
        awaitSeen(1);
    });
    EXPECT_EQ(closed.finish(), 0);
}

TEST(ConsoleLogPostProcessor, ACallbackThatThrowsCostsNoLine)
{
    test::RedirectedProcess process([] {
        init({ failOnBad, bracket });
        print("bad\nworse\nEND\n");
    });
    EXPECT_EQ(process.readUntil("[END]\n"),
        "A line of standard error could not be processed: refused\n[bad]\n"
        "A line of standard error could not be processed: exception of an unknown type\n[worse]\n[END]\n");
    EXPECT_EQ(process.finish(), 0);
}

TEST(ConsoleLogPostProcessor, OtherProgramsGetStandardErrorAndNothingElseOfIt)
{
    test::RedirectedProcess process([] {
        ConsoleLogPostProcessor::init();
        // Descriptor 1 is the same as 2 for the time of the listing.
        const int status =
            std::system("for d in /proc/$$/fd/*; do echo ${d##*/} $(readlink $d); done >&2; echo END >&2");
        EXPECT_EQ(status, 0);
    });
    std::map<std::string, std::string> descriptors;
    for (const auto& line : linesOf(process.readUntil("END\n")))
        descriptors[line.substr(0, line.find(' '))] = line.substr(line.find(' ') + 1);
    const auto pipe = descriptors["2"];
    EXPECT_THAT(pipe, testing::StartsWith("pipe:["));
    EXPECT_NE(pipe, process.pipeName());
    descriptors.erase("1");
    descriptors.erase("2");
    for (const auto& [number, target] : descriptors) {
        EXPECT_NE(target, pipe) << number;
        EXPECT_NE(target, process.pipeName()) << number;
    }
    EXPECT_EQ(process.finish(), 0);
}

TEST(ConsoleLogPostProcessor, TheProcessMayEndWhileLinesComeThrough)
{
    test::RedirectedProcess process([] {
        init({ count, bracket });
        std::thread([] {
            while (::write(STDERR_FILENO, "a line\n", 7) == 7) { }
        }).detach();
        awaitSeen(100);
        std::exit(testing::Test::HasFailure() ? 1 : 0); // With everything that is destroyed then.
    });
    const auto& output = process.readUntil("nothing more");
    EXPECT_THAT(output, testing::StartsWith("[a line]\n[a line]\n"));
    EXPECT_EQ(process.finish(), 0);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
TEST(ConsoleLogPostProcessor, ASanitizersReportGoesPastThePipe)
{
    test::RedirectedProcess process([] {
        init({ [](fn::String& line) { line = ""; }, count });
        __sanitizer_print_stack_trace();
        print("hidden\n");
        awaitSeen(1);
    });
    EXPECT_EQ(process.finish(), 0);
    EXPECT_THAT(process.readUntil("nothing more"), HasSubstr("__sanitizer_print_stack_trace"));
}
#endif

} // namespace
