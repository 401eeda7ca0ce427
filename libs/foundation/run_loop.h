#pragma once
#include "foundation/duration.h"
#include "foundation/handle.h"
#include <folly/Function.h>

namespace fn {

namespace uv {
class Loop;
}
class Clock;

using Task = folly::Function<void()>;

/// The event loop of one thread.
///
/// Tasks run once, on the loop's thread, in posting order: one turn runs the tasks that were present at its start, after
/// that turn's I/O, and does not block while tasks wait. An exception out of a task goes to `fn::unhandledException()`.
/// Posting and scheduling need no run: what they are given waits for the next one.
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
    /// run its own loop again: the inner run goes on with the tasks that wait. Once the loop's destructor has begun it
    /// does not run any more: what that destroys and calls this has a broken invariant reported. `mode` 0 is the only one.
    virtual void run(int mode = 0) = 0;

    /// Ends the innermost run once its turn is over. Several stops before that end one run, not several: what is to end
    /// an outer run, too, stops the loop again when the inner one has returned. Thread-safe.
    virtual void stop() = 0;
    virtual void post(Task task) = 0; ///< Thread-safe. From the loop's own thread it costs no system call.

    /// `post()` for tasks that free something: one that the loop's end finds waiting is run then instead of being
    /// dropped, and one posted while the loop is being destroyed is run at once. Thread-safe.
    virtual void postDeletion(Task deletion) = 0;

    /// Runs `task` once, `delay` from now (negative: now; rounded up to milliseconds). Equal times fire in scheduling
    /// order. Destroying the handle cancels it. Loop thread only, or before the loop runs.
    virtual Handle schedule(Duration delay, Task task) = 0;

    /// The clock that timers of this loop follow.
    virtual const Clock& clock() const = 0;

    virtual uv::Loop& uvLoop() = 0;
};

} // namespace fn
