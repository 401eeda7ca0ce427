#include "redirected_process.h"
#include "support/child_process.h"
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

RedirectedProcess::RedirectedProcess(const std::function<void()>& body)
{
    int output[2];
    int release[2];
    if (::pipe2(output, O_CLOEXEC) != 0 || ::pipe2(release, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    std::fflush(nullptr);
    _pid = ::fork();
    if (_pid == 0) {
        std::signal(SIGPIPE, SIG_DFL);
        ::dup2(output[1], STDERR_FILENO);
        for (const int end : { output[0], output[1], release[1] }) ::close(end);
        body();
        char byte = 0;
        while (::read(release[0], &byte, 1) < 0 && errno == EINTR) { }
        std::fflush(stdout);
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    ::close(output[1]);
    ::close(release[0]);
    _output = output[0];
    _release = release[1];
}

RedirectedProcess::~RedirectedProcess()
{
    if (_pid > 0) {
        ::kill(_pid, SIGKILL);
        ::waitpid(_pid, nullptr, 0);
    }
    closeReader();
    if (_release >= 0) ::close(_release);
}

const std::string& RedirectedProcess::readUntil(std::string_view end)
{
    char buffer[16384];
    while (!_text.ends_with(end) && awaitReadable(_output)) {
        const auto count = ::read(_output, buffer, sizeof buffer);
        if (count <= 0) break;
        _text.append(buffer, static_cast<std::size_t>(count));
    }
    return _text;
}

bool RedirectedProcess::awaitFullPipe() const
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    const int capacity = ::fcntl(_output, F_GETPIPE_SZ);
    int held = 0;
    do ::ioctl(_output, FIONREAD, &held);
    while (held < capacity && std::chrono::steady_clock::now() < end);
    return held == capacity;
}

void RedirectedProcess::closeReader()
{
    if (_output >= 0) ::close(_output);
    _output = -1;
}

std::string RedirectedProcess::pipeName() const
{
    struct stat status = {};
    ::fstat(_output, &status);
    return fmt::format("pipe:[{}]", status.st_ino);
}

std::optional<int> RedirectedProcess::finish()
{
    ::close(_release);
    _release = -1;
    const auto status = awaitEnd(_pid);
    if (status) _pid = -1;
    return status;
}

} // namespace test
