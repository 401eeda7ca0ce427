#include "foundation/system/thread_pool.h"
#include "base/exceptions.h"
#include "foundation/assertion.h"
#include "foundation/system/process_local.h"
#include "foundation/unhandled_exception.h"
#include <algorithm>
#include <atomic>
#include <glib.h>
#include <mutex>
#include <thread>

namespace fn {
namespace {

/// A task in GLib's queue. The locks of the queue order the threads, but ThreadSanitizer cannot see those locks; the atomics here
/// and in the pool tell it the same order.
struct Job {
    Task task;
    std::atomic<bool> isGiven { false };
};

void runGuarded(Task& task) noexcept
{
    try {
        task();
    } catch (...) {
        unhandledException();
    }
}

/// In the simulated world there is one thread: tasks are events of the process's default loop.
void scheduleSimulated(Task task)
{
    constexpr std::uint8_t longestDelay = 20; // Milliseconds.
    std::uint8_t delay = 0;
    uv::System::current()->fillRandomly({ &delay, 1 });
    auto run = [task = std::move(task)]() mutable { runGuarded(task); };
    RunLoop::defaultLoop().schedule(Duration::milliseconds(delay % longestDelay), std::move(run)).detach();
}

} // namespace

struct ThreadPool::Private {
    explicit Private(int threads);

    void schedule(Task task);
    void stop();

private:
    static void runJob(gpointer job, gpointer pool);

    std::mutex _lock;
    GThreadPool* _pool = nullptr; // Guarded by `_lock`; null once stopped.
    std::atomic<std::size_t> _unfinished { 0 };
};

ThreadPool::Private::Private(int threads)
{
    if (uv::System::current()) return;
    GError* error = nullptr;
    // Exclusive threads, which GLib starts now: an error comes here and not at some later task.
    _pool = g_thread_pool_new(runJob, this, std::max(threads, 1), TRUE, &error);
    if (!error) return;
    const RuntimeException exception(String("Can not start the threads of a pool: ") + error->message);
    g_error_free(error);
    g_thread_pool_free(_pool, TRUE, TRUE);
    throw exception;
}

void ThreadPool::Private::schedule(Task task)
{
    if (uv::System::current()) return scheduleSimulated(std::move(task));
    auto job = std::make_unique<Job>();
    job->task = std::move(task);
    const std::lock_guard guard(_lock);
    if (!FN_ASSERT(_pool, sites::poolTakesTasks)) return;
    ++_unfinished;
    job->isGiven.store(true, std::memory_order_release);
    g_thread_pool_push(_pool, job.release(), nullptr); // Cannot fail: all threads are started.
}

void ThreadPool::Private::runJob(gpointer job, gpointer pool)
{
    {
        const std::unique_ptr<Job> owned(static_cast<Job*>(job));
        if (owned->isGiven.load(std::memory_order_acquire)) runGuarded(owned->task);
    }
    --static_cast<Private*>(pool)->_unfinished;
}

void ThreadPool::Private::stop()
{
    GThreadPool* pool = nullptr;
    {
        const std::lock_guard guard(_lock);
        pool = std::exchange(_pool, nullptr);
    }
    if (!pool) return;
    g_thread_pool_free(pool, FALSE, TRUE);
    FN_ASSERT(_unfinished == 0, sites::poolHasFinished);
}

ThreadPool::ThreadPool(int threads) : _private(std::make_unique<Private>(threads)) { }

ThreadPool::~ThreadPool() { stop(); }

ThreadPool& ThreadPool::defaultPool()
{
    // Never destroyed: a task may still be waiting for something when the process exits.
    struct DefaultPool : ThreadPool {
        DefaultPool() : ThreadPool(std::max(4, static_cast<int>(std::thread::hardware_concurrency()))) { }
    };
    static ProcessLocal<DefaultPool> pool;
    return pool.get();
}

void ThreadPool::schedule(Task task) { _private->schedule(std::move(task)); }
void ThreadPool::stop() { _private->stop(); }

} // namespace fn
