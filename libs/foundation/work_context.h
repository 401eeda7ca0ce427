#pragma once
#include "base/export.h"
#include "foundation/duration.h"
#include <cstdint>
#include <optional>

namespace fn {

class ScopedContext;

namespace internal {
class Coroutine;
}

/// What the code that runs now works for: the time at which its result ceases to be of use, and the trace, a number that all the work
/// for one request shares. A value; empty unless `ScopedContext` has installed one on this thread.
///
/// A coroutine begins with the context of the code that calls it, and has its own again after each await. Tasks, timers and callables
/// of `then()` begin with that of the code that runs them: with none, if that is the loop.
class FN_EXPORT WorkContext {
public:
    constexpr WorkContext() = default;

    static WorkContext current() noexcept; ///< Of the calling thread.

    /// This context with a deadline `limit` from now, by the clock of the loop that runs; an earlier deadline stays.
    WorkContext within(Duration limit) const;

    /// This context with the trace `id`; 0 takes the trace away.
    constexpr WorkContext withTrace(std::uint64_t id) const noexcept
    {
        auto result = *this;
        result._traceId = id;
        return result;
    }

    /// What is left until the deadline, by the clock of the loop that runs; never negative. None without a deadline.
    std::optional<Duration> remainingTime() const;

    constexpr std::uint64_t traceId() const noexcept { return _traceId; } ///< 0 without a trace.

private:
    friend ScopedContext;
    friend internal::Coroutine;

    static constexpr Duration never = Duration(INT64_MAX);
    [[gnu::visibility("hidden"), gnu::tls_model("initial-exec")]] static constinit thread_local WorkContext _current;

    Duration _deadline = never;
    std::uint64_t _traceId = 0; // Log lines carry it.
};

/// Installs a context on this thread, and the one before it again at its end. In a coroutine it holds across awaits, for what the
/// coroutine calls and awaits, and for nobody else.
class FN_EXPORT ScopedContext {
public:
    /// From here to the end of the block, work has this context.
    explicit ScopedContext(const WorkContext& context) noexcept;
    ScopedContext(const ScopedContext&) = delete;
    ScopedContext& operator=(const ScopedContext&) = delete;
    ~ScopedContext();

private:
    const WorkContext _before;
};

} // namespace fn
