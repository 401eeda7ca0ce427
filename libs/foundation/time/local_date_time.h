#pragma once
#include "foundation/time/date_time.h"

namespace fn {

/// A moment as the clocks of this machine's time zone show it.
class FN_EXPORT LocalDateTime {
public:
    LocalDateTime(); ///< Now.
    /// With the time zone that is set at the call.
    explicit LocalDateTime(Timestamp timestamp);

    Timestamp timestamp() const noexcept { return _timestamp; } ///< The point of time that it was made of.
    /// The seconds by which the zone is ahead of UTC at that moment.
    int timeZoneDifferential() const noexcept { return _timeZoneDifferential; }

private:
    Timestamp _timestamp;
    int _timeZoneDifferential;
};

} // namespace fn
