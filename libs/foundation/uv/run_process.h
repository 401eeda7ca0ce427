#pragma once
#include "foundation/promise.h"
#include "foundation/uv/process.h"

namespace fn::uv {

/// The end of a child.
struct ProcessExit {
    std::int64_t status = 0; ///< As the process gave it to exit().
    int signal = 0; ///< The signal that ended the child, else 0.
    friend bool operator==(const ProcessExit&, const ProcessExit&) = default;
};

/// Starts a child; fulfilled when the child has ended. `onExit` of the options is replaced. Rejected if the child can not be started,
/// with what `Process::spawn()` throws. Cancelling sends SIGTERM and does not wait: the child is reaped when it ends.
FN_EXPORT Promise<ProcessExit> runProcess(Loop& loop, ProcessOptions options);

} // namespace fn::uv
