#pragma once
#include "foundation/time/clock.h"
#include <atomic>
#include <mutex>
#include <vector>

namespace fn {

/// Is told, on any thread, that a manual clock has been advanced.
class ClockFollower {
public:
    virtual void clockAdvanced() = 0;

protected:
    ~ClockFollower() = default;
};

struct ManualClock::Private {
    void add(ClockFollower& follower);
    void remove(ClockFollower& follower); ///< `follower` is not told any more once this returns.
    void advance(std::int64_t microseconds);

    std::atomic<std::int64_t> elapsed { 0 }; // Microseconds.
    std::mutex lock;
    std::vector<ClockFollower*> followers; // Guarded by `lock`.
};

} // namespace fn
