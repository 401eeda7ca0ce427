#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include "foundation/time/date_time_format.h"
#include "foundation/time/local_date_time.h"

namespace fn {

class FN_EXPORT DateTimeFormatter {
public:
    DateTimeFormatter() = delete;

    static constexpr int UTC = 0xFFFF;

    /// The text of a moment in a zone that is `timeZone` seconds ahead of UTC, or in UTC. `fn::RangeException` for a zone of a day or
    /// more, or for a date beyond what timestamps hold.
    static String format(Timestamp timestamp, DateTimeFormat format, int timeZone = UTC);
    static String format(const LocalDateTime& dateTime, DateTimeFormat format);
};

} // namespace fn
