#pragma once
#include <chrono>
#include <compare>
#include <cstdint>
#include <fmt/format.h>
#include <limits>
#include <optional>
#include <type_traits>

namespace fn {

/// A span of time in whole microseconds, 64-bit signed. Results that do not fit become the least or the greatest span.
class Duration {
public:
    constexpr Duration() = default;
    /// In microseconds; may be negative.
    constexpr explicit Duration(std::int64_t microseconds) : _microseconds(microseconds) { }

    /// Whole microseconds of a standard duration.
    template <typename Rep, typename Period>
    constexpr explicit Duration(std::chrono::duration<Rep, Period> duration)
        : _microseconds(convert<std::int64_t>(duration.count(), Period::num * std::intmax_t(1'000'000), Period::den)
                            .value_or(duration.count() < 0 ? INT64_MIN : INT64_MAX))
    {
    }

    /// As a standard duration, what is finer cut off; none if it does not fit.
    template <typename Standard> constexpr std::optional<Standard> to() const
    {
        const auto count = convert<typename Standard::rep>(
            _microseconds, Standard::period::den, Standard::period::num * std::intmax_t(1'000'000));
        if (!count) return std::nullopt;
        return Standard(*count);
    }

    static constexpr Duration microseconds(std::int64_t count) { return Duration(count); } ///< May be negative.
    /// May be negative. What 64 bits of microseconds do not hold becomes the longest duration.
    static constexpr Duration milliseconds(std::int64_t count) { return Duration(saturatedProduct(count, 1'000)); }
    /// May be negative. What 64 bits of microseconds do not hold becomes the longest duration.
    static constexpr Duration seconds(std::int64_t count) { return Duration(saturatedProduct(count, 1'000'000)); }

    constexpr std::int64_t totalMicroseconds() const { return _microseconds; } ///< All of it, exactly.

    /// Whole milliseconds. `roundingMode` 0 truncates towards zero, 1 rounds up.
    constexpr std::int64_t totalMilliseconds(int roundingMode = 0) const
    {
        const auto whole = _microseconds / 1'000;
        return roundingMode == 1 && _microseconds % 1'000 > 0 ? whole + 1 : whole;
    }
    /// All of it, rounded to what a double holds.
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
    /// `count * factor / divisor`; none if that is no To.
    template <typename To, typename From>
    static constexpr std::optional<To> convert(From count, std::intmax_t factor, std::intmax_t divisor)
    {
        if constexpr (std::is_floating_point_v<From> || std::is_floating_point_v<To>) {
            const auto exact = static_cast<long double>(count) * factor / divisor;
            if constexpr (std::is_floating_point_v<To>) return static_cast<To>(exact);
            // The bounds are powers of two, which a long double holds exactly.
            const auto bound = static_cast<long double>(std::numeric_limits<To>::max()) + 1;
            const bool fits = exact >= -bound && exact < bound; // Not so for no number.
            return fits ? std::optional(static_cast<To>(exact)) : std::nullopt;
        } else {
            __extension__ using Wide = __int128;
            const auto exact = Wide(count) * factor / divisor;
            if (exact < Wide(std::numeric_limits<To>::min()) || exact > Wide(std::numeric_limits<To>::max()))
                return std::nullopt;
            return static_cast<To>(exact);
        }
    }

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
