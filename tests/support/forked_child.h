#pragma once
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

    bool isRunning() { return !status(false); }
    bool succeeds() { return status(true) == 0; } ///< Waits for the end: whether `body` returned true.
    void kill(); ///< At once, and waits for its end.

private:
    std::optional<int> status(bool waits);

    const pid_t _pid;
    std::optional<int> _status;
};

} // namespace test
