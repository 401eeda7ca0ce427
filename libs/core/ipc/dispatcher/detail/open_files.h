#pragma once
#include "foundation/duration.h"
#include <cstdint>
#include <optional>

namespace fn {
class Clock;
}

namespace ipc {

/// How many files (sockets included) this process may have open, and how many more it can open at most.
struct OpenFiles {
    std::uint64_t limit;
    std::uint64_t left;
};

/// Costs three system calls, however many files are open.
OpenFiles openFiles() noexcept;

/// Says in the log, at most once a minute, that this process can open few more files. The warning comes while there are some:
/// when there is none left, the listener drops a new connection without telling anybody.
class OpenFilesWarning {
public:
    void check(const fn::Clock& clock); ///< To be called when a file has been opened.

private:
    std::optional<fn::Duration> _warnedAt;
};

} // namespace ipc
