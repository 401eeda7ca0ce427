#pragma once
#include "foundation/duration.h"
#include <cstdint>
#include <optional>

namespace fn {
class Clock;
}

namespace ipc {

/// How many files (sockets included) this process may have open, and how many of them are left at most.
struct OpenFiles {
    std::uint64_t limit;
    std::uint64_t left;
};

/// Costs two system calls, however many are open.
OpenFiles openFiles() noexcept;

/// Says in the log, at most once a minute, that few files are left to open. Who connects when there is none is dropped by
/// the system's side of the listener, which tells nobody: so it is said before.
class OpenFilesWarning {
public:
    void check(const fn::Clock& clock); ///< A file has been opened.

private:
    std::optional<fn::Duration> _warnedAt;
};

} // namespace ipc
