#pragma once
#include "foundation/coroutine/join.h"
#include "foundation/duration.h"
#include "foundation/run_loop.h"

namespace fn {

/// Fulfilled `delay` from now, by the timers of the loop that runs. Cancelling it cancels the timer.
FN_EXPORT Promise<void> sleep(Duration delay);
FN_EXPORT Promise<void> sleep(RunLoop& loop, Duration delay);

namespace internal {
[[noreturn]] FN_EXPORT void throwTimedOut(Duration limit);
}

/// What `work` gives, if it is there within `limit`. Otherwise `work` is cancelled, and a `fn::OperationTimedOutException` tells the
/// limit.
template <typename T> Promise<T> withTimeout(Promise<T> work, Duration limit)
{
    auto first = co_await any(std::move(work), sleep(limit));
    if (first.index() == 1) internal::throwTimedOut(limit);
    if constexpr (!std::is_void_v<T>) co_return std::get<0>(std::move(first));
}

} // namespace fn
