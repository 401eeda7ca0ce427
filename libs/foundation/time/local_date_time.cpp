#include "foundation/time/local_date_time.h"
#include <ctime>

namespace fn {

LocalDateTime::LocalDateTime() : LocalDateTime(Timestamp::now()) { }

LocalDateTime::LocalDateTime(Timestamp timestamp) : _timestamp(timestamp), _timeZoneDifferential(0)
{
    const auto microseconds = timestamp.sinceEpoch().totalMicroseconds();
    const std::time_t seconds = microseconds / 1'000'000 - (microseconds % 1'000'000 < 0 ? 1 : 0);
    std::tm fields;
    if (::localtime_r(&seconds, &fields)) _timeZoneDifferential = static_cast<int>(fields.tm_gmtoff);
}

} // namespace fn
