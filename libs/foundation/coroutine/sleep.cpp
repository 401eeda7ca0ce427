#include "foundation/coroutine/sleep.h"
#include "foundation/coroutine/settler.h"

namespace fn {

Promise<void> sleep(Duration delay)
{
    auto* loop = RunLoop::currentLoop();
    return sleep(loop ? *loop : RunLoop::defaultLoop(), delay);
}

Promise<void> sleep(RunLoop& loop, Duration delay)
{
    const auto promise = Promise<void>::create();
    promise.onCancel(
        [timer = loop.schedule(delay, [promise] { promise.fulfill(); })]() mutable { timer.invalidate(); });
    return promise;
}

void internal::throwTimedOut(Duration limit)
{
    throw OperationTimedOutException(fmt::format("Nothing came within {}", limit));
}

} // namespace fn
