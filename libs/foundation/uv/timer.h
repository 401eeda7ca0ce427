#pragma once
#include "foundation/run_loop.h"
#include "foundation/uv/loop.h"

namespace fn::uv {

/// One-shot timers of a loop. They share one queue; scheduling and cancelling cost no system call.
class FN_EXPORT Timer {
public:
    /// `loop.schedule()`.
    static Handle schedule(Loop& loop, Duration delay, Task task) { return loop.schedule(delay, std::move(task)); }
};

} // namespace fn::uv
