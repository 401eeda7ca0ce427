#pragma once
#include "base/export.h"

namespace core {

/// While a SleepPreventer exists in this process, the system does not go to sleep; the display may. If the system refuses that,
/// one log line says so, and the process goes on.
///
/// The objects are made, copied and destroyed on the thread of a running loop; otherwise a broken invariant is reported, but the
/// object counts. Making the first one may wait for the system, two seconds at most.
class FN_EXPORT SleepPreventer {
public:
    SleepPreventer();
    SleepPreventer(const SleepPreventer&);
    SleepPreventer& operator=(const SleepPreventer&) noexcept; ///< Does nothing: the number of objects is the same.
    ~SleepPreventer();
};

} // namespace core
