#pragma once
#include <compare>
#include <cstdint>
#include <fmt/format.h>

namespace fn {

/// A span of time in whole microseconds, 64-bit signed. Results that do not fit become the least or the greatest span.
class Duration {
public:
    constexpr Duration() = default;
    constexpr explicit Duration(std::int64_t microseconds) : _microseconds(microseconds) { }

    static constexpr Duration microseconds(std::int64_t count) { return Duration(count); }
    static constexpr Duration milliseconds(std::int64_t count) { return Duration(saturatedProduct(count, 1'000)); }
    static constexpr Duration seconds(std::int64_t count) { return Duration(saturatedProduct(count, 1'000'000)); }

    constexpr std::int64_t totalMicroseconds() const { return _microseconds; }

    /// Whole milliseconds. `roundingMode` 0 truncates towards zero, 1 rounds up.
    constexpr std::int64_t totalMilliseconds(int roundingMode = 0) const
    {
        const auto whole = _microseconds / 1'000;
        return roundingMode == 1 && _microseconds % 1'000 > 0 ? whole + 1 : whole;
    }
    constexpr double totalSeconds() const { return static_cast<double>(_microseconds) / 1e6; }

    friend constexpr auto operator<=>(Duration, Duration) = default;
    friend constexpr Duration operator+(Duration a, Duration b)
    {
        std::int64_t sum = 0;
        if (!__builtin_add_overflow(a._microseconds, b._microseconds, &sum)) return Duration(sum);
        return Duration(b._microseconds < 0 ? INT64_MIN : INT64_MAX);
    }
    friend constexpr Duration operator-(Duration a, Duration b)
    {
        std::int64_t difference = 0;
        if (!__builtin_sub_overflow(a._microseconds, b._microseconds, &difference)) return Duration(difference);
        return Duration(b._microseconds < 0 ? INT64_MAX : INT64_MIN);
    }

private:
    static constexpr std::int64_t saturatedProduct(std::int64_t count, std::int64_t unit)
    {
        std::int64_t result = 0;
        if (__builtin_mul_overflow(count, unit, &result)) return count < 0 ? INT64_MIN : INT64_MAX;
        return result;
    }

    std::int64_t _microseconds = 0;
};

} // namespace fn

/// Writes a span in the largest unit that tells it exactly: "2 s", "1500 ms", "-7 us".
template <> struct fmt::formatter<fn::Duration> {
    constexpr auto parse(fmt::format_parse_context& context) { return context.begin(); }
    template <typename Context> auto format(fn::Duration duration, Context& context) const
    {
        const auto count = duration.totalMicroseconds();
        if (count % 1'000'000 == 0) return fmt::format_to(context.out(), "{} s", count / 1'000'000);
        if (count % 1'000 == 0) return fmt::format_to(context.out(), "{} ms", count / 1'000);
        return fmt::format_to(context.out(), "{} us", count);
    }
};
