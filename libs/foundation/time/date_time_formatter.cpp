#include "foundation/time/date_time_formatter.h"
#include "base/exceptions.h"
#include "foundation/time/detail/english_names.h"
#include <cstdlib>
#include <fmt/format.h>

namespace fn {
namespace {

DateTime inZone(Timestamp timestamp, int timeZone)
{
    if (std::abs(timeZone) >= 24 * 60 * 60) throw RangeException("There is no such time zone");
    DateTime result(timestamp);
    result.makeUTC(-timeZone);
    return result;
}

// At least four digits, and the sign besides.
std::string yearText(int year) { return fmt::format("{}{:04}", year < 0 ? "-" : "", std::abs(year)); }

String formatSortable(const DateTime& date)
{
    return fmt::format("{}-{:02}-{:02} {:02}:{:02}:{:02}", yearText(date.year()), date.month(), date.day(), date.hour(),
        date.minute(), date.second());
}

String formatRFC1123(const DateTime& date, const std::string& zone)
{
    return fmt::format("{}, {:02} {} {} {:02}:{:02}:{:02} {}", internal::dayNames[date.dayOfWeek()], date.day(),
        internal::monthNames[date.month() - 1], yearText(date.year()), date.hour(), date.minute(), date.second(), zone);
}

} // namespace

String DateTimeFormatter::format(Timestamp timestamp, DateTimeFormat format, int timeZone)
{
    const bool utc = timeZone == UTC;
    if (format == DateTimeFormat::SORTABLE_FORMAT) return formatSortable(inZone(timestamp, utc ? 0 : timeZone));
    if (utc) return formatRFC1123(DateTime(timestamp), "GMT");

    const int minutes = timeZone / 60; // The text has the zone in whole minutes, so the date is of that zone.
    const auto date = inZone(timestamp, minutes * 60);
    const int distance = std::abs(minutes);
    return formatRFC1123(date, fmt::format("{}{:02}{:02}", minutes < 0 ? '-' : '+', distance / 60, distance % 60));
}

String DateTimeFormatter::format(const LocalDateTime& dateTime, DateTimeFormat format)
{
    return DateTimeFormatter::format(dateTime.timestamp(), format, dateTime.timeZoneDifferential());
}

} // namespace fn
