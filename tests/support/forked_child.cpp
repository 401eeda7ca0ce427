#include "support/forked_child.h"
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace test {
namespace {

[[noreturn]] void run(const std::function<bool()>& body) noexcept { ::_exit(body() ? 0 : 1); }

pid_t start(const std::function<bool()>& body)
{
    const auto pid = ::fork();
    if (pid == 0) run(body);
    if (pid < 0) throw std::runtime_error("fork");
    return pid;
}

} // namespace

ForkedChild::ForkedChild(const std::function<bool()>& body) : _pid(start(body)) { }

ForkedChild::~ForkedChild() { kill(); }

bool ForkedChild::isRunning()
{
    wait(WNOHANG);
    return !_ended;
}

bool ForkedChild::succeeds()
{
    wait(0);
    return WIFEXITED(_status) && WEXITSTATUS(_status) == 0;
}

void ForkedChild::kill()
{
    if (_ended) return; // The id may be another process's by now.
    ::kill(_pid, SIGKILL);
    wait(0);
}

void ForkedChild::wait(int options)
{
    if (!_ended) _ended = ::waitpid(_pid, &_status, options) == _pid;
}

} // namespace test
