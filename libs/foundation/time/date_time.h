#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include "foundation/time/timestamp.h"
#include <cstdint>

namespace fn {

/// A date and time of the Gregorian calendar (also before its introduction), to the microsecond, without a zone of its own: the
/// fields are UTC unless their source says otherwise. Covers every timestamp.
class FN_EXPORT DateTime {
public:
    DateTime() = default; ///< 1970-01-01 00:00:00.
    /// In UTC.
    explicit DateTime(Timestamp timestamp);

    /// `fn::RangeException` for a field out of its range, or for a date beyond what timestamps hold.
    DateTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0, int microsecond = 0);

    int year() const noexcept { return _year; } ///< Astronomical: 0 is 1 BC.
    int month() const noexcept { return _month; } ///< 1 to 12.
    int day() const noexcept { return _day; } ///< 1 to 31.
    int dayOfWeek() const noexcept { return _dayOfWeek; } ///< 0 is Sunday.
    int hour() const noexcept { return _hour; } ///< 0 to 23.
    int minute() const noexcept { return _minute; } ///< 0 to 59.
    int second() const noexcept { return _second; } ///< 0 to 59: there are no leap seconds.
    int microsecond() const noexcept { return _microsecond; } ///< 0 to 999,999.

    /// Takes the fields as local time that is `timeZoneDifferential` seconds ahead of UTC, and turns them into UTC.
    /// `fn::RangeException` for a date beyond what timestamps hold.
    void makeUTC(int timeZoneDifferential);

    Timestamp timestamp() const; ///< The fields taken as UTC.

private:
    explicit DateTime(std::int64_t microseconds);

    std::int64_t _microseconds = 0; // Since 1970-01-01 00:00:00; the fields follow from it.
    std::int32_t _year = 1970;
    std::int32_t _microsecond = 0;
    std::int8_t _month = 1;
    std::int8_t _day = 1;
    std::int8_t _dayOfWeek = 4;
    std::int8_t _hour = 0;
    std::int8_t _minute = 0;
    std::int8_t _second = 0;
};

} // namespace fn
