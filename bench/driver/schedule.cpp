#include "driver/schedule.h"

namespace bench {
namespace {

using Seconds = std::chrono::duration<double>;

Schedule::Clock::duration duration(double seconds)
{
    return std::chrono::duration_cast<Schedule::Clock::duration>(Seconds(seconds));
}

} // namespace

Schedule::Schedule(const Options& options)
    : _warmUp(duration(options.seconds("warmup"))),
      _measured(duration(options.seconds("seconds")))
{
}

void Schedule::start() { _phaseStart = Clock::now(); }

void Schedule::advance(Clock::time_point now, std::uint64_t done)
{
    const auto elapsed = now - _phaseStart;
    if (_phase == Phase::WarmUp && elapsed >= _warmUp) {
        _phase = Phase::Measuring;
        _phaseStart = now;
        _doneBefore = done;
    } else if (_phase == Phase::Measuring && elapsed >= _measured) {
        _phase = Phase::Ending;
        _rate = static_cast<double>(done - _doneBefore) / Seconds(elapsed).count();
    }
}

} // namespace bench
