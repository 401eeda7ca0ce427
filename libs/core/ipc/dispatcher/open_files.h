#pragma once
#include "foundation/export.h"
#include <cstdint>

namespace ipc {

/// How many files (sockets included) this process may have open, and how many of them are left at most.
struct OpenFiles {
    std::uint64_t limit;
    std::uint64_t left;
};

/// Costs two system calls, however many are open.
FN_EXPORT OpenFiles openFiles() noexcept;

} // namespace ipc
