#pragma once
#include "base/exceptions.h"
#include "foundation/run_loop.h"
#include <memory>

namespace fn {

/// Threads that take tasks in the order of scheduling, each task on the thread that is free first.
///
/// For work that blocks, so that no run loop has to wait for it. An exception out of a task goes to
/// `fn::unhandledException()`.
class FN_EXPORT ThreadPool {
public:
    /// Starts `threads` threads, at least one. `fn::RuntimeException` if the system gives no more threads.
    explicit ThreadPool(int threads);
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;
    ~ThreadPool(); ///< Calls `stop()`.

    /// The pool of the process, made at the first call and never destroyed: a thread for each core, at least four. Nobody
    /// stops it. Thread-safe.
    static ThreadPool& defaultPool();

    /// Runs and destroys `task` on a thread of the pool. A stopped pool reports a broken invariant and drops the task.
    /// Thread-safe.
    void schedule(Task task);

    /// Refuses further tasks, and returns when all tasks that the pool has taken have run. The second call does nothing. Not to be
    /// called from a task of this pool. Thread-safe.
    void stop();

private:
    struct Private;
    std::unique_ptr<Private> _private;
};

} // namespace fn
