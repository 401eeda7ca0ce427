#pragma once
#include "base/exceptions.h"
#include "foundation/run_loop.h"
#include <memory>

namespace fn {

/// Threads that run tasks one after the other, each task on whichever of them is free first.
///
/// Work that blocks is given to them, so that a run loop does not have to wait for it. An exception out of a task goes to
/// `fn::unhandledException()`.
class FN_EXPORT ThreadPool {
public:
    /// Starts `threads` threads, at least one. `fn::RuntimeException` where the system gives no more of them.
    explicit ThreadPool(int threads);
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;
    ~ThreadPool(); ///< `stop()`.

    /// The pool of the process, made at the first call and never destroyed: a thread for each core, at least four. Nobody
    /// stops it. Thread-safe.
    static ThreadPool& defaultPool();

    /// Has `task` run, and destroyed, on a thread of the pool. A stopped pool reports an assertion and drops it.
    /// Thread-safe.
    void schedule(Task task);

    /// Takes no further tasks and returns when all those taken have run. The second call does nothing. Not from a task
    /// of this pool. Thread-safe.
    void stop();

private:
    struct Private;
    std::unique_ptr<Private> _private;
};

} // namespace fn
