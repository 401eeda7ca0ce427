#pragma once
#include "foundation/time/date_time.h"

namespace fn {

/// A moment as the clocks of this machine's time zone show it.
class FN_EXPORT LocalDateTime {
public:
    LocalDateTime(); ///< Now.
    explicit LocalDateTime(Timestamp timestamp);

    Timestamp timestamp() const noexcept { return _timestamp; }
    int timeZoneDifferential() const noexcept
    {
        return _timeZoneDifferential;
    } ///< Seconds ahead of UTC, then and there.

private:
    Timestamp _timestamp;
    int _timeZoneDifferential;
};

} // namespace fn
