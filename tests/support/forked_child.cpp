#include "support/forked_child.h"
#include <csignal>
#include <poll.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

bool awaitReadable(int descriptor, std::chrono::milliseconds bound)
{
    pollfd entry { descriptor, POLLIN, 0 };
    return ::poll(&entry, 1, static_cast<int>(bound.count())) > 0;
}

std::optional<int> awaitEnd(pid_t child, std::chrono::milliseconds bound)
{
    // A process descriptor becomes readable when the process has ended.
    const auto descriptor = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
    const bool ended = descriptor >= 0 && awaitReadable(descriptor, bound);
    if (descriptor >= 0) ::close(descriptor);
    int status = 0;
    if (!ended || ::waitpid(child, &status, 0) != child) return std::nullopt;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

ForkedChild::ForkedChild(const std::function<bool()>& body) : _pid(::fork())
{
    if (_pid == 0) [&]() noexcept { ::_exit(body() ? 0 : 1); }();
    if (_pid < 0) throw std::runtime_error("fork");
}

void ForkedChild::signal(int number) const { ::kill(_pid, number); }

void ForkedChild::kill()
{
    if (!isRunning()) return; // The id may be another process's by now.
    signal(SIGKILL);
    wait();
}

std::optional<int> ForkedChild::wait(std::chrono::milliseconds bound)
{
    if (!_status) _status = awaitEnd(_pid, bound);
    return _status;
}

} // namespace test
