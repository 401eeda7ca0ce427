#pragma once
#include "foundation/duration.h"
#include "foundation/value.h"
#include <chrono>
#include <compare>
#include <concepts>
#include <cstdint>

namespace fn {

namespace internal {
FN_EXPORT String timestampText(Duration sinceEpoch);
FN_EXPORT Duration wallClock();
} // namespace internal

/// A point on the clock named by `Clock`, in whole microseconds since that clock's epoch.
template <typename Clock> class TimestampBase {
public:
    constexpr TimestampBase() = default; ///< The epoch.
    /// So long after the epoch; negative before.
    constexpr explicit TimestampBase(Duration sinceEpoch) : _sinceEpoch(sinceEpoch) { }
    constexpr explicit TimestampBase(std::int64_t microseconds) : _sinceEpoch(microseconds) { }

    /// The time that the system's clock shows. Thread-safe.
    static TimestampBase now() requires std::same_as<Clock, std::chrono::system_clock>
    {
        return TimestampBase(internal::wallClock());
    }

    constexpr Duration sinceEpoch() const { return _sinceEpoch; } ///< Since 1970-01-01 00:00 UTC; negative before.
    /// Since 1970-01-01 00:00 UTC; negative before.
    constexpr std::int64_t microseconds() const { return _sinceEpoch.totalMicroseconds(); }

    /// A text for people: UTC, 'YYYY-MM-DD hh:mm:ss.ffffff'; beyond some 32,000 years from 1970 the number of microseconds.
    String toString() const { return internal::timestampText(_sinceEpoch); }

    friend constexpr auto operator<=>(TimestampBase, TimestampBase) = default;
    friend constexpr TimestampBase operator+(TimestampBase a, Duration b) { return TimestampBase(a._sinceEpoch + b); }
    friend constexpr TimestampBase operator-(TimestampBase a, Duration b) { return TimestampBase(a._sinceEpoch - b); }
    friend constexpr Duration operator-(TimestampBase a, TimestampBase b) { return a._sinceEpoch - b._sinceEpoch; }

private:
    Duration _sinceEpoch;
};

/// Wall clock time, UTC. Values box it.
using Timestamp = TimestampBase<std::chrono::system_clock>;

template <> inline constexpr bool isBoxable<Timestamp> = true; ///< A `fn::Value` holds time stamps.

} // namespace fn
