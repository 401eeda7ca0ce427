#include "support/forked_child.h"
#include <csignal>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace test {
namespace {

[[noreturn]] void run(const std::function<bool()>& body) noexcept { ::_exit(body() ? 0 : 1); }

} // namespace

ForkedChild::ForkedChild(const std::function<bool()>& body) : _pid(::fork())
{
    if (_pid == 0) run(body);
    if (_pid < 0) throw std::runtime_error("fork");
}

void ForkedChild::kill()
{
    if (_status) return; // The id may be another process's by now.
    ::kill(_pid, SIGKILL);
    status(true);
}

std::optional<int> ForkedChild::status(bool waits)
{
    int status = 0;
    if (!_status && ::waitpid(_pid, &status, waits ? 0 : WNOHANG) == _pid) _status = status;
    return _status;
}

} // namespace test
