// What can break here: a line torn, lost, doubled or out of order; a reader that stops or ends the process, so that
// everybody who writes to standard error waits for ever; descriptors that reach other programs. The redirection belongs to
// the process, so each case runs in one of its own.
#include "core/console_log_post_processor.h"
#include "support/child_process.h"
#include "support/forked_child.h"
#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace {

using core::ConsoleLogPostProcessor;
using namespace std::string_literals;

/// A process made of this one (which has one thread) that does `body`, with a pipe as its standard error, and then waits
/// until it is released. It succeeds unless expectations have failed in it.
class RedirectedProcess {
public:
    explicit RedirectedProcess(const std::function<void()>& body)
        : _process([&] {
              std::signal(SIGPIPE, SIG_DFL);
              ::dup2(_output[1], STDERR_FILENO);
              for (const int end : { _output[0], _output[1], _release[1] }) ::close(end);
              body();
              char byte = 0;
              while (::read(_release[0], &byte, 1) < 0 && errno == EINTR) { }
              std::fflush(stdout);
              return !testing::Test::HasFailure();
          })
    {
        for (const int end : { _output[1], _release[0] }) ::close(end);
    }
    ~RedirectedProcess() { ::close(_output[0]); }

    /// What has come out of its standard error, once that ends in `end`, or when nothing more comes within the bound.
    const std::string& readUntil(std::string_view end)
    {
        char buffer[16384];
        while (!_text.ends_with(end) && test::awaitReadable(reader())) {
            const auto count = ::read(reader(), buffer, sizeof buffer);
            if (count <= 0) break;
            _text.append(buffer, static_cast<std::size_t>(count));
        }
        return _text;
    }

    int reader() const { return _output[0]; } ///< Of what was its standard error at first.
    void closeReader() { ::close(std::exchange(_output[0], -1)); }

    /// Lets it end.
    bool succeeds()
    {
        ::close(_release[1]);
        return _process.succeeds();
    }

private:
    using Pipe = std::array<int, 2>;
    static Pipe pipe()
    {
        Pipe ends {};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
        return ends;
    }

    Pipe _output = pipe();
    const Pipe _release = pipe();
    test::ForkedChild _process;
    std::string _text;
};

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

TEST(ConsoleLogPostProcessor, EachLineMeetsTheCallbacksInTheirOrderAlsoWhereTheyThrow)
{
    RedirectedProcess process([] {
        init({ count, failOnBad, star, bracket, hideSecrets, star });
        print("abc");
        print("def\nsecond\n\na secret\nthi");
        print("rd\n");
        awaitSeen(5);
        ConsoleLogPostProcessor::unregisterStandardErrorCallback(star);
        print("bad\nworse\n");
        awaitSeen(7);
        print("a secret\n"); // Empty in the end: not written.
        awaitSeen(8);
        ConsoleLogPostProcessor::unregisterStandardErrorCallback(hideSecrets);
        ConsoleLogPostProcessor::registerStandardErrorCallback(star);
        print("fifth, secret\nEND\n");
    });
    // A line that is emptied is so for the callbacks behind, too; what they make of it counts.
    EXPECT_EQ(process.readUntil("[END]*\n"),
        "[abcdef*]*\n[second*]*\n[*]*\n*\n[third*]*\n"
        "A line of standard error could not be processed: refused\n[bad]\n"
        "A line of standard error could not be processed: exception of an unknown type\n[worse]\n"
        "[fifth, secret]*\n[END]*\n");
    EXPECT_TRUE(process.succeeds());
}

TEST(ConsoleLogPostProcessor, OutlivesItsReaderAndAMissingStandardError)
{
    const auto printUnread = [] {
        init({ count });
        for (int line = 1; line <= 3; ++line) {
            print("nobody reads this\n");
            awaitSeen(line);
        }
    };
    RedirectedProcess unread([&] {
        pollfd output { STDERR_FILENO, 0, 0 };
        ASSERT_EQ(::poll(&output, 1, 20'000), 1); // Its reader has gone.
        printUnread();
    });
    unread.closeReader();
    EXPECT_TRUE(unread.succeeds());
    RedirectedProcess closed([&] {
        ::close(STDERR_FILENO);
        printUnread();
    });
    EXPECT_TRUE(closed.succeeds());
}

TEST(ConsoleLogPostProcessor, OtherProgramsGetStandardErrorAndNothingElseOfItAndLinesAreLeftAloneWithoutCallbacks)
{
    const auto text = "one\n\n\r\n a\0b \xFF\x80\n"s;
    RedirectedProcess process([&] {
        ConsoleLogPostProcessor::init();
        for (const char& byte : text) print({ &byte, 1 });
        EXPECT_EQ(std::system("readlink /proc/$$/fd/2 /proc/$$/fd/[3-9] /proc/$$/fd/??* >&2; echo END >&2"), 0);
    });
    auto output = process.readUntil("END\n");
    ASSERT_EQ(output.substr(0, text.size()), text);
    const auto lines = fn::String(output.substr(text.size())).split('\n');
    EXPECT_TRUE(lines.front().startsWith("pipe:[")) << lines.front();
    const auto first = std::filesystem::read_symlink(fmt::format("/proc/self/fd/{}", process.reader())).string();
    EXPECT_EQ(std::ranges::count(lines, lines.front()), 1);
    EXPECT_EQ(std::ranges::count(lines, first), 0);
    EXPECT_TRUE(process.succeeds());
}

TEST(ConsoleLogPostProcessor, TakesLinesThatNoPipeHoldsAlsoForAReaderThatIsSlowWhereWritingDoesNotBlock)
{
    const std::string large(1024 * 1024, 'x');
    const std::string endless(70 * 1024 * 1024, 'y');
    RedirectedProcess process([&] {
        ASSERT_EQ(::fcntl(STDERR_FILENO, F_SETFL, O_WRONLY | O_NONBLOCK), 0);
        init({ bracket });
        print("a\n" + large + "\nb\n" + endless + "\n");
        std::string many; // Several in a piece of what is read, and some on the border of two.
        for (int line = 0; line < 20'000; ++line) many += fmt::format("{}\n", line);
        print(many + "END\n");
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    const int full = ::fcntl(process.reader(), F_GETPIPE_SZ) - 4096; // But for the rest of a page.
    int held = 0;
    do ::ioctl(process.reader(), FIONREAD, &held);
    while (held < full && std::chrono::steady_clock::now() < end);
    EXPECT_GE(held, full) << "it waits for us";
    const auto output = fn::String(process.readUntil("[END]\n")).split('\n');
    ASSERT_EQ(output.size(), 20'006u);
    for (unsigned line = 0; line < 20'000; ++line) ASSERT_EQ(output[5 + line], fmt::format("[{}]", line));
    EXPECT_EQ(output[0], "[a]");
    EXPECT_TRUE(output[1] == "[" + large + "]") << output[1].size();
    EXPECT_EQ(output[2], "[b]");
    // Passed on in two pieces, for fear of filling the memory.
    EXPECT_GE(output[3].size(), 64u * 1024 * 1024);
    EXPECT_EQ(output[3].size() + output[4].size(), endless.size() + 4);
    EXPECT_TRUE(process.succeeds());
}

} // namespace
