#pragma once
#include <chrono>
#include <functional>
#include <optional>
#include <sys/types.h>

namespace test {

/// A copy of this process that runs a function and ends: for what has to happen in several processes, or as another user.
/// Only for tests without threads. Killed at the latest when this goes.
class ForkedChild {
public:
    /// `body` says whether all went well; it must not use assertions of the test framework. What it throws ends the child.
    explicit ForkedChild(const std::function<bool()>& body);
    ForkedChild(const ForkedChild&) = delete;
    ~ForkedChild() { kill(); }

    pid_t pid() const { return _pid; }
    void signal(int number) const;
    void kill(); ///< At once, and waits for its end.
    bool isRunning() { return !wait(std::chrono::milliseconds(0)); }
    bool succeeds() { return wait(std::chrono::minutes(5)) == 0; } ///< Waits for the end: whether `body` returned true.

    /// Exit status, or 128 + signal; nothing beyond the bound.
    std::optional<int> wait(std::chrono::milliseconds bound = std::chrono::seconds(20));

private:
    const pid_t _pid;
    std::optional<int> _status;
};

/// Waits until `descriptor` can be read; false beyond the bound.
bool awaitReadable(int descriptor, std::chrono::milliseconds bound);

/// Waits for the end of a child of this process: exit status, or 128 + signal; nothing beyond the bound.
std::optional<int> awaitEnd(pid_t child, std::chrono::milliseconds bound = std::chrono::seconds(20));

} // namespace test
