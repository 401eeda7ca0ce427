#include "program.h"
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {
namespace {

constexpr auto bound = std::chrono::seconds(60); // Sanitizers, and machines that do other things, take their time.

/// Of /proc. Empty where the process has ended or is just about to.
std::string contents(const std::string& name)
{
    std::ifstream file("/proc/" + name);
    return { std::istreambuf_iterator(file), {} };
}

std::string commandLine(pid_t pid) { return contents(std::to_string(pid) + "/cmdline"); }

} // namespace

bool await(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        ::poll(nullptr, 0, 1);
    }
    return true;
}

Program::Program(std::vector<std::string> command, Streams streams) : _hasTerminal(streams == Streams::Terminal)
{
    std::vector<char*> pointers;
    for (auto& argument : command) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    ::setenv("TERM", "xterm", 1);
    if (!_hasTerminal) {
        _output = ::memfd_create("output", MFD_CLOEXEC);
        _errors = ::memfd_create("errors", MFD_CLOEXEC);
    }
    _pid = _hasTerminal ? ::forkpty(&_output, nullptr, nullptr, nullptr) : ::fork();
    if (_pid < 0) throw std::runtime_error("fork");
    if (_pid == 0) {
        if (!_hasTerminal) {
            ::setsid();
            ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
            ::dup2(_output, STDOUT_FILENO);
            ::dup2(_errors, STDERR_FILENO);
        }
        ::execv(pointers[0], pointers.data());
        ::_exit(127);
    }
    if (_hasTerminal) ::fcntl(_output, F_SETFL, O_NONBLOCK);
}

Program::~Program()
{
    if (!_hasEnded) {
        ::kill(-_pid, SIGKILL);
        ::waitpid(_pid, nullptr, 0);
    }
    ::close(_output);
    ::close(_errors);
}

void Program::type(std::string_view text) const
{
    if (::write(_output, text.data(), text.size()) != static_cast<ssize_t>(text.size())) ADD_FAILURE() << "Cannot type";
}

void Program::signal(int number) const { ::kill(-_pid, number); }

std::vector<pid_t> Program::processes() const
{
    std::vector<pid_t> result;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const auto pid = static_cast<pid_t>(std::atoi(entry.path().filename().c_str()));
        if (pid > 0 && ::getsid(pid) == _pid) result.push_back(pid);
    }
    return result;
}

pid_t Program::awaitModule(const std::string& name) const
{
    pid_t found = 0;
    await([&] {
        for (const auto pid : processes()) {
            if (commandLine(pid).contains("/" + name + ".dll")) found = pid;
        }
        return found > 0;
    });
    if (found == 0) throw std::runtime_error("no process of module " + name); // -1 would mean all processes.
    return found;
}

bool Program::awaitOutput(std::string_view text, std::size_t from)
{
    return await([&] { return output().find(text, from) != std::string::npos; });
}

int Program::wait()
{
    int status = 0;
    _hasEnded = await([&] {
        output(); // A terminal that is not read would hold it up.
        return ::waitpid(_pid, &status, WNOHANG) == _pid;
    });
    EXPECT_TRUE(_hasEnded) << "The program does not end.\n" << output() << errors();
    if (!_hasEnded) return -1;
    for (const auto pid : processes()) {
        const auto line = commandLine(pid);
        if (line.empty()) continue; // A leak checker's helper outlives its process for a moment.
        ADD_FAILURE() << "Process " << pid << " is left behind: " << line;
        ::kill(pid, SIGKILL);
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

std::string Program::output()
{
    if (!_hasTerminal) return contents("self/fd/" + std::to_string(_output));
    std::array<char, 4096> buffer;
    for (ssize_t count; (count = ::read(_output, buffer.data(), buffer.size())) > 0;) {
        _terminalText.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return _terminalText;
}

std::string Program::errors() const { return contents("self/fd/" + std::to_string(_errors)); }

} // namespace test
