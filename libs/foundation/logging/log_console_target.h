#pragma once
#include "foundation/logging/log_target.h"

namespace fn {

/// Standard error, as the process has it at the moment of each write. While it takes nothing, a pipe that nobody reads say, a
/// thread that runs a loop does not wait at all, any other one 100 ms, once until it takes something again. Control
/// characters other than tabs and line ends come out as "\xNN": texts from elsewhere must not command the terminal.
/// Thread-safe.
class FN_EXPORT LogConsoleTarget final : public LogTarget {
public:
    LogConsoleTarget() = default;
    void write(const String& text) override;

private:
    ~LogConsoleTarget() override;
};

} // namespace fn
