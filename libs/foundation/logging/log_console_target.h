#pragma once
#include "foundation/logging/log_target.h"

namespace fn {

/// Standard error, as the process has it at the moment of each write. Control characters other than tabs and line ends
/// come out as "\xNN": texts from elsewhere must not command the terminal. Thread-safe.
class FN_EXPORT LogConsoleTarget final : public LogTarget {
public:
    LogConsoleTarget() = default;
    void write(const String& text) override;

private:
    ~LogConsoleTarget() override;
};

} // namespace fn
