#pragma once
#include "driver/driver.h"
#include <chrono>

namespace bench {

/// The course of one measurement: `warmup` seconds that do not count, `seconds` that do, then the end, in which nothing
/// new begins and what is under way is awaited.
class Schedule {
public:
    using Clock = std::chrono::steady_clock;
    enum class Phase { WarmUp, Measuring, Ending };

    explicit Schedule(const Options& options);

    void start();
    Phase phase() const { return _phase; }

    /// Goes on to the next phase if it is time to. `done` counts the work done since `start()`.
    void advance(Clock::time_point now, std::uint64_t done);

    double rate() const { return _rate; } ///< Work done a second while measuring; known once it is ending.

private:
    const Clock::duration _warmUp;
    const Clock::duration _measured;
    Phase _phase = Phase::WarmUp;
    Clock::time_point _phaseStart;
    std::uint64_t _doneBefore = 0; // Until the measuring began.
    double _rate = 0;
};

} // namespace bench
