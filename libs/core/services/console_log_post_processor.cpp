#include "core/services/console_log_post_processor.h"
#include "base/exceptions.h"
#include "base/file_descriptor.h"
#include "base/posix.h"
#include "foundation/system/lock.h"
#include "platform/pipe.h"
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <deque>
#include <fcntl.h>
#include <future>
#include <poll.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

/// A function of the sanitizers' run-time library; null in a build without sanitizers.
// NOLINTNEXTLINE(bugprone-reserved-identifier): their name.
extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* descriptor);

namespace core {
namespace {

using Callback = void (*)(fn::String&);

constexpr std::size_t chunkBytes = 16 * 1024;
constexpr std::size_t longestLine = 64 * 1024 * 1024;

struct Redirection {
    fn::FileDescriptor saved; // The former standard error.
    fn::FileDescriptor readEnd; // The pipe's read end.
};

struct Reader {
    int saved; // The former standard error, which stays open.
    std::future<void> end;
};

struct State {
    fn::Lock lock;
    std::vector<Reader> readers; // The latest last. Guarded by `lock`.
    std::vector<Callback> callbacks; // Guarded by `lock`.
    std::deque<Redirection> unread; // Redirections without a reader. Guarded by `lock`.
};

// The state is never destroyed: the reader's thread goes on while the process ends.
State& state()
{
    static auto& result = *new State;
    return result;
}

/// Threads that are started while this lives do not get SIGPIPE, which would end the process.
class PipeSignalBlocked {
public:
    PipeSignalBlocked()
    {
        sigset_t signals;
        ::sigemptyset(&signals);
        ::sigaddset(&signals, SIGPIPE);
        ::pthread_sigmask(SIG_BLOCK, &signals, &_previous);
    }
    PipeSignalBlocked(const PipeSignalBlocked&) = delete;
    ~PipeSignalBlocked() { ::pthread_sigmask(SIG_SETMASK, &_previous, nullptr); }

private:
    sigset_t _previous = {};
};

void replaceStandardError(int descriptor)
{
    const auto result = fn::posix::uninterrupted([&] { return ::dup2(descriptor, STDERR_FILENO); });
    if (result < 0) fn::posix::fail("Standard error can not be redirected");
}

/// Opens descriptor 2 in a process that was started without it, so that no other file gets this number.
void ensureStandardError()
{
    if (::fcntl(STDERR_FILENO, F_GETFD) >= 0) return;
    fn::FileDescriptor nowhere(fn::posix::open("/dev/null", O_WRONLY));
    if (nowhere.get() == STDERR_FILENO)
        nowhere.release();
    else if (nowhere)
        replaceStandardError(nowhere.get());
}

fn::FileDescriptor saveStandardError()
{
    fn::FileDescriptor result(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!result) fn::posix::fail("Standard error can not be kept");
    return result;
}

/// Text that cannot be written is lost: there is no other place to report it.
void writeAll(const fn::FileDescriptor& saved, std::string_view text) noexcept
{
    while (!text.empty()) {
        const auto count = fn::posix::write(saved.get(), text.data(), text.size());
        if (count > 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (count < 0 && errno == EAGAIN) {
            // Another process that shares the descriptor has made it non-blocking; this waits for its reader all the same.
            pollfd output { saved.get(), POLLOUT, 0 };
            ::poll(&output, 1, -1);
        } else {
            return;
        }
    }
}

/// Does not use `fn::unhandledException()`, whose log line would be a new line for the callback that has just failed.
void tellFailure(const fn::FileDescriptor& saved, const char* reason) noexcept
{
    writeAll(saved, "A line of standard error could not be processed: ");
    writeAll(saved, reason);
    writeAll(saved, "\n");
}

/// Calls `action`, which may throw anything.
template <typename Action> void guarded(const fn::FileDescriptor& saved, Action&& action) noexcept
{
    try {
        action();
    } catch (const std::exception& exception) {
        tellFailure(saved, exception.what());
    } catch (...) {
        tellFailure(saved, "exception of an unknown type");
    }
}

void deliver(const fn::FileDescriptor& saved, fn::String line)
{
    std::vector<Callback> callbacks;
    {
        const fn::ScopedLock guard(state().lock);
        callbacks = state().callbacks;
    }
    for (const auto callback : callbacks) guarded(saved, [&] { callback(line); });
    writeAll(saved, line);
}

/// Cuts the bytes that were read into lines. Looks at each byte once, however long a line becomes.
void takeChunk(const fn::FileDescriptor& saved, fn::String& pending, std::string_view chunk)
{
    for (std::size_t lineFeed; (lineFeed = chunk.find('\n')) != std::string_view::npos;
         chunk.remove_prefix(lineFeed + 1)) {
        pending += chunk.substr(0, lineFeed + 1);
        deliver(saved, std::exchange(pending, fn::String()));
    }
    pending += chunk;
    if (pending.size() >= longestLine) deliver(saved, std::exchange(pending, fn::String()));
}

void readLines(const Redirection& redirection)
{
    fn::String pending;
    std::array<char, chunkBytes> chunk;
    for (;;) {
        const auto count = fn::posix::read(redirection.readEnd.get(), chunk.data(), chunk.size());
        if (count < 1) return;
        guarded(redirection.saved, [&] {
            takeChunk(redirection.saved, pending, { chunk.data(), static_cast<std::size_t>(count) });
        });
    }
}

} // namespace

void ConsoleLogPostProcessor::init()
{
    ensureStandardError();
    Redirection redirection { saveStandardError(), {} };
    int ends[2];
    if (platform::_pipe(ends, 1, platform::_O_NOINHERIT) != 0) fn::posix::fail("There is no pipe for standard error");
    redirection.readEnd = fn::FileDescriptor(ends[0]);
    // Descriptor 2 becomes the only copy of the write end: the reader ends when the process has closed that one, too.
    const fn::FileDescriptor writeEnd(ends[1]);
    const int saved = redirection.saved.get();
    std::promise<void> end;

    auto& unread = state().unread;
    {
        const fn::ScopedLock guard(state().lock);
        unread.push_back(std::move(redirection));
        state().readers.push_back({ saved, end.get_future() });
    }
    // The thread starts before descriptor 2 is replaced: without a reader the pipe would soon block all writers.
    try {
        const PipeSignalBlocked blocked;
        std::thread([end = std::move(end)]() mutable {
            runStandardError();
            end.set_value();
        }).detach();
    } catch (...) {
        const fn::ScopedLock guard(state().lock);
        unread.pop_back();
        state().readers.pop_back();
        throw;
    }
    replaceStandardError(writeEnd.get());
    // A sanitizer's report may end the process before the thread has read it from the pipe.
    if (__sanitizer_set_report_fd)
        __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<std::intptr_t>(saved)));
}

void ConsoleLogPostProcessor::quit(fn::Duration most)
{
    Reader reader {};
    {
        const fn::ScopedLock guard(state().lock);
        if (state().readers.empty()) return;
        reader = std::move(state().readers.back());
        state().readers.pop_back();
    }
    replaceStandardError(reader.saved); // Closes the last write end of the pipe in this process.
    reader.end.wait_for(std::chrono::microseconds(most.totalMicroseconds()));
}

void ConsoleLogPostProcessor::registerStandardErrorCallback(void (*callback)(fn::String&))
{
    const fn::ScopedLock guard(state().lock);
    state().callbacks.push_back(callback);
}

void ConsoleLogPostProcessor::unregisterStandardErrorCallback(void (*callback)(fn::String&))
{
    const fn::ScopedLock guard(state().lock);
    std::erase(state().callbacks, callback);
}

void ConsoleLogPostProcessor::runStandardError()
{
    Redirection redirection;
    {
        const fn::ScopedLock guard(state().lock);
        auto& unread = state().unread;
        if (unread.empty()) return;
        redirection = std::move(unread.front());
        unread.pop_front();
    }
    readLines(redirection);
    redirection.saved.release(); // Stays open: a sanitizer may still report there.
}

} // namespace core
