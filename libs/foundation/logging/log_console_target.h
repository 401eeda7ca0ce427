#pragma once
#include "foundation/logging/log_target.h"

namespace fn {

/// Writes to the standard error that the process has at the moment of each write. While standard error takes nothing (a pipe
/// that nobody reads, say), a thread that runs a loop does not wait at all; other threads wait 100 ms once, and no more until
/// an entry has passed. Control characters other than tabs and line ends come out as "\xNN", so that foreign texts cannot
/// command the terminal. Thread-safe.
class FN_EXPORT LogConsoleTarget final : public LogTarget {
public:
    LogConsoleTarget() = default;
    void write(const String& text) override;

private:
    ~LogConsoleTarget() override;
};

} // namespace fn
