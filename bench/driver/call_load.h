#pragma once
#include "driver/schedule.h"
#include <functional>

namespace bench {

/// The load of a caller, the same for every system: keeps `window` calls in flight through the schedule, checks that
/// each was answered once, and reports. With `timed` 1 and a window of 1 it also times each call.
class CallLoad {
public:
    /// `send` starts the call of that number; its answer goes to `answered()`, not inside of `send`.
    CallLoad(const Options& options, std::function<void(std::uint64_t number)> send);

    void start();
    void answered(std::uint64_t number);

private:
    void sendNext();
    void finish();

    const std::function<void(std::uint64_t)> _send;
    const std::uint64_t _window;
    const bool _timed;

    Schedule _schedule;
    std::uint64_t _sent = 0;
    std::uint64_t _answered = 0;
    std::uint64_t _answeredNumbers = 0; // Their sum: a call answered twice in place of another shows.
    Schedule::Clock::time_point _sentAt; // Of the only call in flight.
    std::vector<double> _latencies; // In microseconds.
};

} // namespace bench
