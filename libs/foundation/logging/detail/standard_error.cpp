#include "foundation/logging/detail/standard_error.h"
#include "foundation/run_loop.h"
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fn::logging {
namespace {

using Clock = std::chrono::steady_clock;

std::atomic<std::uint64_t> lost { 0 }; // Entries lost since an entry was last written.
std::atomic<bool> cutOff { false }; // The last entry was written in part.

/// Writes without waiting to the file that descriptor 2 has now. O_NONBLOCK is not set on descriptor 2: all processes that have
/// inherited the descriptor would share the flag.
class Output {
public:
    Output() noexcept;
    Output(const Output&) = delete;
    ~Output()
    {
        if (_descriptor != STDERR_FILENO) ::close(_descriptor);
    }

    /// Like write(), but EAGAIN where write() would wait.
    ssize_t write(std::string_view text) const noexcept;

    /// Waits until standard error can take bytes. False if it cannot within that time.
    bool await(int milliseconds) const noexcept
    {
        pollfd output { _descriptor, POLLOUT, 0 };
        return ::poll(&output, 1, milliseconds) > 0 && output.revents == POLLOUT;
    }

private:
    enum class Way { Direct, Send, IfReady };

    int _descriptor = STDERR_FILENO;
    Way _way = Way::IfReady;
};

Output::Output() noexcept
{
    struct stat status = {};
    if (::fstat(STDERR_FILENO, &status) != 0) return;
    if (S_ISREG(status.st_mode)) {
        _way = Way::Direct; // A file that is opened anew is written from its beginning.
    } else if (S_ISSOCK(status.st_mode)) {
        _way = Way::Send;
    } else if (S_ISFIFO(status.st_mode) || ::isatty(STDERR_FILENO)) {
        // O_APPEND, in case another thread has just put a file there.
        const int opened = ::open("/proc/self/fd/2", O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (opened < 0) return; // The terminal or pipe belongs to another user, or the pipe has no reader.
        _descriptor = opened;
        _way = Way::Direct;
    }
}

ssize_t Output::write(std::string_view text) const noexcept
{
    switch (_way) {
    case Way::Direct: break;
    case Way::Send: return ::send(_descriptor, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    case Way::IfReady:
        errno = EAGAIN;
        if (!await(0)) return -1;
        text = text.substr(0, PIPE_BUF); // A pipe that is ready takes this many bytes at once.
        break;
    }
    return ::write(_descriptor, text.data(), text.size());
}

int millisecondsUntil(Clock::time_point time)
{
    return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now()).count());
}

/// Writes the text, and returns whether all of it was written.
bool writeWhole(const Output& output, std::string_view text, Clock::time_point deadline) noexcept
{
    const auto size = text.size();
    while (!text.empty()) {
        const auto written = output.write(text);
        if (written > 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (written < 0 && errno == EAGAIN) {
            const int left = millisecondsUntil(deadline);
            if (left <= 0 || (!output.await(left) && errno != EINTR)) break;
        } else if (written == 0 || errno != EINTR) {
            break;
        }
    }
    if (!text.empty() && text.size() < size) cutOff = true;
    return text.empty();
}

/// Ends an entry that was cut off, and writes how many entries are lost. False if that cannot be written either.
// NOLINTNEXTLINE(bugprone-exception-escape): nothing throws here, for the format is checked when it is compiled.
bool tellLost(const Output& output) noexcept
{
    const auto count = lost.exchange(0);
    if (count == 0) return true;
    const bool hasNoEnd = cutOff.exchange(false);
    std::array<char, 100> line;
    const auto end = fmt::format_to_n(line.data(), line.size(),
        "{}(log entries lost: {}; standard error took no more)\n", hasNoEnd ? "\n" : "", count);
    if (writeWhole(output, { line.data(), end.size }, Clock::now())) return true;
    lost += count;
    if (hasNoEnd) cutOff = true;
    return false;
}

} // namespace

void writeStandardError(std::string_view text) noexcept
{
    const Output output;
    const bool mayWait = lost.load() == 0 && !RunLoop::currentLoop();
    const auto deadline = Clock::now() + std::chrono::milliseconds(mayWait ? standardErrorPatienceMilliseconds : 0);
    if (!tellLost(output) || !writeWhole(output, text, deadline)) ++lost;
}

} // namespace fn::logging
