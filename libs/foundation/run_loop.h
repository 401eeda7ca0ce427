#pragma once
#include "foundation/duration.h"
#include "foundation/handle.h"
#include <folly/Function.h>

namespace fn {

namespace uv {
class Loop;
}
class Clock;

/// Runs once, on the loop's thread. What it throws goes to `fn::unhandledException()`.
using Task = folly::Function<void()>;

/// The event loop of one thread.
///
/// Tasks run once, on the loop's thread, in posting order: one turn runs the tasks that were present at its start, after
/// that turn's I/O, and does not block while tasks wait. An exception out of a task goes to `fn::unhandledException()`.
/// Tasks may be posted and timers scheduled while the loop does not run: they wait for the next run.
class FN_EXPORT RunLoop {
public:
    RunLoop() = default;
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;
    virtual ~RunLoop();

    /// The loop that runs on this thread now; null outside of `run()`.
    static RunLoop* currentLoop() noexcept;

    /// The loop of the process's main thread, made at the first call and never destroyed.
    static RunLoop& defaultLoop();

    /// Runs until `stop()`, with or without work. A stop while no run was going on ends the next run at once. A task may
    /// run its own loop again: the inner run goes on with the tasks that wait. Once the loop's destructor has begun, a call
    /// (of a destructor of a task, for example) only reports a broken invariant. `mode` is always 0.
    virtual void run(int mode = 0) = 0;

    /// Ends the innermost run once its turn is over. Several stops before that end only one run: to end an outer run, too,
    /// call this again when the inner run has returned. Thread-safe.
    virtual void stop() = 0;
    virtual void post(Task task) = 0; ///< Thread-safe. From the loop's own thread it costs no system call.

    /// `post()` for a task that frees something: a deletion that still waits when the loop is destroyed is run then instead of
    /// being dropped, and a deletion that is posted while the loop is being destroyed is run at once. Thread-safe.
    virtual void postDeletion(Task deletion) = 0;

    /// Runs `task` once, `delay` from now (negative: now; rounded up to milliseconds). Tasks of one time run in the order of
    /// scheduling. Destroying the handle cancels the task. Loop thread only, or before the loop runs.
    virtual Handle schedule(Duration delay, Task task) = 0;

    /// The clock that timers of this loop follow.
    virtual const Clock& clock() const = 0;

    virtual uv::Loop& uvLoop() = 0; ///< The loop over libuv that this is.
};

} // namespace fn
