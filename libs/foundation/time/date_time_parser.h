#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include "foundation/time/date_time.h"
#include "foundation/time/date_time_format.h"

namespace fn {

class FN_EXPORT DateTimeParser {
public:
    DateTimeParser() = delete;

    /// Reads what DateTimeFormatter writes. The result has the fields as written; `timeZoneDifferential` is set to the number of
    /// seconds by which the fields are ahead of UTC (see `DateTime::makeUTC`). In the RFC 1123 form the day of the week and the
    /// seconds may be missing, a day may have one digit, and UTC may be "GMT", "UT" or "UTC". Anything else:
    /// `fn::DataFormatException`.
    static DateTime parse(const String& text, DateTimeFormat format, int& timeZoneDifferential);
};

} // namespace fn
