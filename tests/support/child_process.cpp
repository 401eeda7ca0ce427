#include "support/child_process.h"
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace test {

bool awaitReadable(int descriptor, std::chrono::milliseconds bound)
{
    pollfd entry { descriptor, POLLIN, 0 };
    return poll(&entry, 1, static_cast<int>(bound.count())) > 0;
}

std::optional<int> awaitEnd(pid_t child, std::chrono::milliseconds bound)
{
    // A process descriptor becomes readable when the process has ended.
    const auto descriptor = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
    const bool ended = descriptor >= 0 && awaitReadable(descriptor, bound);
    if (descriptor >= 0) close(descriptor);
    int status = 0;
    if (!ended || waitpid(child, &status, 0) != child) return std::nullopt;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

ChildProcess::ChildProcess(std::vector<std::string> arguments)
{
    if (arguments[0].find('/') == std::string::npos)
        arguments[0] = std::string(TEST_BINARY_DIR "/programs/") + arguments[0];
    std::vector<char*> pointers;
    for (auto& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    const auto error = posix_spawn(&_pid, pointers[0], &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    _output = ends[0];
    if (error != 0) ADD_FAILURE() << "cannot start " << arguments[0];
}

ChildProcess::~ChildProcess()
{
    if (!_status && _pid > 0) {
        kill(_pid, SIGKILL);
        wait();
    }
    close(_output);
}

void ChildProcess::signal(int number) const { kill(_pid, number); }

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds bound)
{
    const auto end = std::chrono::steady_clock::now() + bound;
    for (;;) {
        if (const auto newline = _unread.find('\n'); newline != std::string::npos) {
            auto line = _unread.substr(0, newline);
            _unread.erase(0, newline + 1);
            return line;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        char buffer[4096];
        if (left.count() <= 0 || !awaitReadable(_output, left)) return std::nullopt;
        const auto count = read(_output, buffer, sizeof(buffer));
        if (count <= 0) return std::nullopt;
        _unread.append(buffer, static_cast<std::size_t>(count));
    }
}

std::optional<int> ChildProcess::wait(std::chrono::milliseconds bound)
{
    if (!_status) _status = awaitEnd(_pid, bound);
    return _status;
}

} // namespace test
