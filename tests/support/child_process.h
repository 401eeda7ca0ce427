#pragma once
#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace test {

/// A program that a test starts, with its standard output in a pipe. Killed at the latest when this goes.
class ChildProcess {
public:
    /// `arguments[0]` is the path, or the name of a program of this build.
    explicit ChildProcess(std::vector<std::string> arguments);
    ChildProcess(const ChildProcess&) = delete;
    ~ChildProcess();

    pid_t pid() const { return _pid; }
    void signal(int number) const;

    /// The next line of its standard output; nothing at its end or beyond the bound.
    std::optional<std::string> readLine(std::chrono::milliseconds bound = std::chrono::seconds(20));

    /// Exit status, or 128 + signal; nothing beyond the bound.
    std::optional<int> wait(std::chrono::milliseconds bound = std::chrono::seconds(20));

private:
    pid_t _pid = -1;
    int _output = -1;
    std::string _unread;
    std::optional<int> _status;
};

/// Waits until `descriptor` can be read; false beyond the bound.
bool awaitReadable(int descriptor, std::chrono::milliseconds bound = std::chrono::seconds(20));

/// Waits for the end of a child of this process: exit status, or 128 + signal; nothing beyond the bound.
std::optional<int> awaitEnd(pid_t child, std::chrono::milliseconds bound = std::chrono::seconds(20));

} // namespace test
