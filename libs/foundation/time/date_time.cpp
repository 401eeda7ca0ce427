#include "foundation/time/date_time.h"
#include "base/exceptions.h"
#include <chrono>

namespace fn {
namespace {

constexpr std::int64_t microsecondsPerSecond = 1'000'000;
constexpr std::int64_t microsecondsPerDay = 86'400 * microsecondsPerSecond;

// The calendar repeats after 400 years, which are whole weeks. Timestamps reach further than std::chrono's years, so
// std::chrono is asked about the same day in the years 1970 to 2369.
constexpr std::int64_t yearsPerCycle = 400;
constexpr std::int64_t daysPerCycle = 146'097;

constexpr std::int64_t floorDivide(std::int64_t value, std::int64_t by)
{
    return value / by - (value % by < 0 ? 1 : 0);
}
constexpr std::int64_t floorModulo(std::int64_t value, std::int64_t by)
{
    return value % by + (value % by < 0 ? by : 0);
}

[[noreturn]] void throwOutOfRange() { throw RangeException("The date is beyond what a timestamp holds"); }

} // namespace

DateTime::DateTime(Timestamp timestamp) : DateTime(timestamp.sinceEpoch().totalMicroseconds()) { }

DateTime::DateTime(std::int64_t microseconds) : _microseconds(microseconds)
{
    const auto days = floorDivide(microseconds, microsecondsPerDay);
    const auto cycle = floorDivide(days, daysPerCycle);
    const std::chrono::sys_days day { std::chrono::days(floorModulo(days, daysPerCycle)) };
    const std::chrono::year_month_day date { day };
    _year = static_cast<std::int32_t>(static_cast<int>(date.year()) + cycle * yearsPerCycle);
    _month = static_cast<std::int8_t>(static_cast<unsigned>(date.month()));
    _day = static_cast<std::int8_t>(static_cast<unsigned>(date.day()));
    _dayOfWeek = static_cast<std::int8_t>(std::chrono::weekday(day).c_encoding());

    const std::chrono::hh_mm_ss time { std::chrono::microseconds(floorModulo(microseconds, microsecondsPerDay)) };
    _hour = static_cast<std::int8_t>(time.hours().count());
    _minute = static_cast<std::int8_t>(time.minutes().count());
    _second = static_cast<std::int8_t>(time.seconds().count());
    _microsecond = static_cast<std::int32_t>(time.subseconds().count());
}

DateTime::DateTime(int year, int month, int day, int hour, int minute, int second, int microsecond)
{
    const auto yearOfCycle = 1970 + floorModulo(std::int64_t(year) - 1970, yearsPerCycle);
    const auto cycle = floorDivide(std::int64_t(year) - 1970, yearsPerCycle);
    const bool fits = month >= 1 && month <= 12 && day >= 1 && day <= 31 && hour >= 0 && hour < 24 && minute >= 0
        && minute < 60 && second >= 0 && second < 60 && microsecond >= 0 && microsecond < microsecondsPerSecond;
    const std::chrono::year_month_day date { std::chrono::year(static_cast<int>(yearOfCycle)),
        std::chrono::month(static_cast<unsigned>(month)), std::chrono::day(static_cast<unsigned>(day)) };
    if (!fits || !date.ok()) throw RangeException("There is no such date or time");

    auto days = std::chrono::sys_days(date).time_since_epoch().count() + cycle * daysPerCycle;
    auto time = ((hour * 60 + minute) * 60 + second) * microsecondsPerSecond + microsecond;
    // A date before 1970 is counted from the midnight after it: the midnight before may be earlier than any timestamp.
    if (days < 0) {
        ++days;
        time -= microsecondsPerDay;
    }
    std::int64_t result = 0;
    if (__builtin_mul_overflow(days, microsecondsPerDay, &result) || __builtin_add_overflow(result, time, &result)) {
        throwOutOfRange();
    }
    *this = DateTime(result);
}

void DateTime::makeUTC(int timeZoneDifferential)
{
    std::int64_t result = 0;
    if (__builtin_sub_overflow(_microseconds, timeZoneDifferential * microsecondsPerSecond, &result)) throwOutOfRange();
    *this = DateTime(result);
}

Timestamp DateTime::timestamp() const { return Timestamp(Duration(_microseconds)); }

} // namespace fn
