#pragma once
#include "foundation/coroutine/settler.h"
#include "foundation/run_loop.h"
#include "foundation/system/thread_pool.h"
#include "foundation/work_context.h"

namespace fn {

/// Has `work` run on a thread of the pool, where it may block, and gives what it returns or throws on the loop that runs now, or
/// else on the default one. That loop outlives the work: who destroys a loop waits for the pool before.
/// Cancelling gives the outcome up, not the work. `work` is called, with the WorkContext of the caller, and destroyed on the other
/// thread: it owns what it uses.
template <typename F, typename Result = std::invoke_result_t<std::decay_t<F>&>>
Promise<Result> onPool(F&& work, ThreadPool& pool = ThreadPool::defaultPool())
{
    static_assert(
        internal::isFreedOnce<F>, "name the lambda first, and give it by that name: docs/coroutines.md, GCC 12");
    const auto promise = Promise<Result>::create();
    auto* current = RunLoop::currentLoop();
    auto& loop = current ? *current : RunLoop::defaultLoop();
    pool.schedule([&loop, waiting = internal::Settler(promise), work = std::forward<F>(work),
                      caller = WorkContext::current()]() mutable {
        const ScopedContext context(caller);
        // The promise goes back to the loop's thread, whatever happens.
        const auto settle = [&](auto how) {
            loop.post([waiting = std::move(waiting), how = std::move(how)]() mutable { how(*waiting); });
        };
        try {
            if constexpr (std::is_void_v<Result>) {
                work();
                settle([](const Promise<Result>& promise) { promise.fulfill(); });
            } else {
                settle(
                    [result = work()](const Promise<Result>& promise) mutable { promise.fulfill(std::move(result)); });
            }
        } catch (...) {
            settle([failure = std::current_exception()](const Promise<Result>& promise) { promise.reject(failure); });
        }
    });
    return promise;
}

} // namespace fn
