#include "driver/call_load.h"
#include <fmt/format.h>

namespace bench {
namespace {

// The clock is read once in so many answers unless each is timed: reading it costs a measurable part of a call.
constexpr std::uint64_t answersPerClockReading = 32;

using Microseconds = std::chrono::duration<double, std::micro>;

} // namespace

CallLoad::CallLoad(const Options& options, std::function<void(std::uint64_t)> send)
    : _send(std::move(send)),
      _window(options.count("window")),
      _timed(options.count("timed") != 0),
      _schedule(options)
{
    if (_timed && _window != 1) fail("only calls that go one at a time are timed");
    if (_timed) _latencies.reserve(1 << 20); // Not while measuring.
}

void CallLoad::start()
{
    _schedule.start();
    for (std::uint64_t i = 0; i < _window; ++i) sendNext();
}

void CallLoad::sendNext()
{
    if (_timed) _sentAt = Schedule::Clock::now();
    _send(_sent++);
}

void CallLoad::answered(std::uint64_t number)
{
    ++_answered;
    _answeredNumbers += number;
    if (_timed || _answered % answersPerClockReading == 0) {
        const auto now = Schedule::Clock::now();
        if (_timed && _schedule.phase() == Schedule::Phase::Measuring) {
            _latencies.push_back(Microseconds(now - _sentAt).count());
        }
        _schedule.advance(now, _answered);
    }
    if (_schedule.phase() != Schedule::Phase::Ending)
        sendNext();
    else if (_answered == _sent)
        finish();
}

void CallLoad::finish()
{
    if (_answeredNumbers != _sent * (_sent - 1) / 2) fail(fmt::format("{} calls, but the answers do not match", _sent));
    std::vector<std::pair<std::string, double>> results { { "calls", static_cast<double>(_answered) },
        { "rate", _schedule.rate() } };
    if (_timed) {
        results.emplace_back("median_us", percentile(_latencies, 0.5));
        results.emplace_back("p99_us", percentile(_latencies, 0.99));
    }
    report(results);
}

} // namespace bench
