#pragma once
#include "base/export.h"

namespace core {

/// While one of them exists in this process the system does not go to sleep; the display may. Where the system refuses, that
/// is logged once and the process goes on.
///
/// Made, copied and destroyed on the thread of a running loop, else that is reported as a broken invariant (and counts).
/// The first may wait for the system, two seconds at most.
class FN_EXPORT SleepPreventer {
public:
    SleepPreventer();
    SleepPreventer(const SleepPreventer&);
    SleepPreventer& operator=(const SleepPreventer&) noexcept; ///< Nothing: there are as many as before.
    ~SleepPreventer();
};

} // namespace core
