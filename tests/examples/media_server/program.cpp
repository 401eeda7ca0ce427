#include "program.h"
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
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

/// Whether a process has a handler for this signal.
bool catches(pid_t pid, int signal)
{
    const auto status = contents(std::to_string(pid) + "/status");
    const auto at = status.find("SigCgt:");
    return at != std::string::npos && std::stoull(status.substr(at + 7), nullptr, 16) >> (signal - 1) & 1;
}

int openOutput(Program::Output output, int& ownSide)
{
    if (output == Program::Output::Files) return ::dup(ownSide = ::memfd_create("output", MFD_CLOEXEC));
    if (output == Program::Output::Full) return ::open("/dev/full", O_WRONLY);
    ownSide = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ::grantpt(ownSide);
    ::unlockpt(ownSide);
    ::fcntl(ownSide, F_SETFL, O_NONBLOCK);
    return ::open(::ptsname(ownSide), O_RDWR | O_NOCTTY);
}

/// In the child, between fork and exec.
void dropOverride()
{
    ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0);
    ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0);
}

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

Program::Program(std::vector<std::string> arguments, const Setting& setting)
{
    arguments.insert(arguments.begin(), setting.program);
    std::vector<char*> pointers;
    for (auto& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    ::setenv("TERM", "xterm", 1);

    const int output = openOutput(setting.output, _output);
    _errors = ::memfd_create("errors", MFD_CLOEXEC);
    const int input = ::memfd_create("input", MFD_CLOEXEC);
    static_cast<void>(::pwrite(input, setting.input.data(), setting.input.size(), 0));
    const bool onTerminal = setting.output == Output::Terminal;
    _pid = ::fork();
    if (_pid < 0) throw std::runtime_error("fork");
    if (_pid == 0) {
        ::setsid();
        ::dup2(onTerminal ? output : input, STDIN_FILENO);
        ::dup2(output, STDOUT_FILENO);
        ::dup2(onTerminal ? output : _errors, STDERR_FILENO);
        if (!setting.mayReadAll) dropOverride();
        ::execv(pointers[0], pointers.data());
        ::_exit(127);
    }
    ::close(output);
    ::close(input);
}

Program::~Program()
{
    if (!_hasEnded) {
        ::kill(-_pid, SIGKILL);
        ::waitpid(_pid, nullptr, 0);
    }
    if (_output >= 0) ::close(_output);
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
            if (commandLine(pid).find("/" + name + ".dll") != std::string::npos && catches(pid, SIGTERM)) found = pid;
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
    const bool ended = await([&] {
        if (_output >= 0) output(); // A terminal that is not read would hold it up.
        return ::waitpid(_pid, &status, WNOHANG) == _pid;
    });
    EXPECT_TRUE(ended) << "The program does not end.\n" << output() << errors();
    if (!ended) return -1;
    _hasEnded = true;
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
    if (_output < 0) return {};
    if (!::isatty(_output)) return contents("self/fd/" + std::to_string(_output));
    std::array<char, 4096> buffer;
    for (ssize_t count; (count = ::read(_output, buffer.data(), buffer.size())) > 0;) {
        _terminalText.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return _terminalText;
}

std::string Program::errors() { return contents("self/fd/" + std::to_string(_errors)); }

} // namespace test
