#pragma once
#include "base/export.h"
#include "foundation/duration.h"

namespace fn {

/// A source of the time. A test can give a loop, a timer or a log a clock that the test drives.
class FN_EXPORT Clock {
public:
    virtual ~Clock();
    virtual Duration monotonic() const = 0; ///< Since some fixed point; never goes back. Thread-safe.
    virtual Duration sinceEpoch() const = 0; ///< Wall clock, UTC, since 1970-01-01. Thread-safe.

    static const Clock& system(); ///< The system's own.
};

/// A clock that stands still between calls of `advance()`, which wakes the loops that follow the clock: they look at their timers.
class FN_EXPORT ManualClock final : public Clock {
public:
    ManualClock();
    ~ManualClock() override; ///< To be destroyed after the loops that follow it.

    Duration monotonic() const override;
    Duration sinceEpoch() const override;
    void advance(Duration by); ///< Thread-safe.

    struct Private;
    Private& internals() const noexcept { return *_private; } ///< For the loop.

private:
    Private* _private;
};

} // namespace fn
