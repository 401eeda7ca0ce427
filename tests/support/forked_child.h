#pragma once
#include <functional>
#include <sys/types.h>

namespace test {

/// A copy of this process that runs a function and ends: for what has to happen in several processes, or as another user.
/// Only for tests without threads. Killed at the latest when this goes.
class ForkedChild {
public:
    /// `body` says whether all went well; it must not use assertions of the test framework. What it throws ends the child.
    explicit ForkedChild(const std::function<bool()>& body);
    ForkedChild(const ForkedChild&) = delete;
    ForkedChild& operator=(const ForkedChild&) = delete;
    ~ForkedChild();

    bool isRunning();
    bool succeeds(); ///< Waits for the end: whether `body` returned true.
    void kill(); ///< At once, and waits for its end.

private:
    void wait(int options);

    const pid_t _pid;
    int _status = 0;
    bool _ended = false;
};

} // namespace test
