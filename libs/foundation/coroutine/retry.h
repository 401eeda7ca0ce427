#pragma once
#include "foundation/coroutine/sleep.h"
#include <algorithm>

namespace fn {

/// How often something is tried and how long it rests in between: each time twice as long as before.
class Backoff {
public:
    /// `attempts`: at least one is made. `longest` bounds a rest.
    Backoff(int attempts, Duration first, Duration longest) : _left(attempts), _rest(first), _longest(longest) { }

    /// After a failure: whether it is tried again, which counts.
    bool triesAgain() noexcept { return --_left > 0; }

    /// How long it rests before the next attempt.
    Duration nextRest() noexcept
    {
        const auto rest = std::min(_rest, _longest);
        _rest = rest + rest;
        return rest;
    }

private:
    int _left;
    Duration _rest;
    Duration _longest;
};

namespace internal {

template <typename F> std::invoke_result_t<F&> retryKept(Backoff backoff, F attempt)
{
    for (;;) {
        try {
            co_return co_await attempt();
        } catch (...) {
            if (!backoff.triesAgain()) throw;
        }
        co_await sleep(backoff.nextRest());
    }
}

} // namespace internal

/// What the first attempt gives that succeeds, or the failure of the last one. `attempt` is kept until then; it gives a promise each
/// time it is called.
template <typename F> auto retry(Backoff backoff, F attempt)
{
    return internal::retryKept(backoff, std::move(attempt));
}

} // namespace fn
