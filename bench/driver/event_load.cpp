#include "driver/event_load.h"
#include "driver/stamp.h"
#include <algorithm>
#include <fmt/format.h>

namespace bench {
namespace {

// The byte behind the first stamp tells whether this event is the last one.
constexpr std::size_t lastMark = stampBytes;

} // namespace

EventLoad::EventLoad(const Options& options, std::function<void(std::span<const std::uint8_t>)> publish)
    : _publish(std::move(publish)),
      _window(options.count("window")),
      _received(options.count("subscribers")),
      _body(options.count("event_bytes")),
      _schedule(options)
{
    if (_body.size() < 2 * stampBytes + 1) fail("events are too small for what they carry");
}

void EventLoad::acknowledged(std::uint64_t index, std::uint64_t events)
{
    if (index >= _received.size() || events > _published) fail("an impossible acknowledgement arrived");
    const bool joins = !_received[index];
    _received[index] = events;
    if (!std::ranges::all_of(_received, [](const auto& count) { return count.has_value(); })) return;
    if (joins) _schedule.start();

    _schedule.advance(Schedule::Clock::now(), delivered());
    const auto slowest = **std::ranges::min_element(_received);
    if (_schedule.phase() != Schedule::Phase::Ending) {
        while (_published < slowest + _window) publishNext(false);
    } else if (!_lastPublished) {
        publishNext(true);
    } else if (slowest == _published) {
        report({ { "published", static_cast<double>(_published) }, { "rate", _schedule.rate() } });
    }
}

void EventLoad::publishNext(bool last)
{
    _body[lastMark] = last;
    _lastPublished = last;
    stamp(_body, _published++);
    _publish(_body);
}

std::uint64_t EventLoad::delivered() const
{
    std::uint64_t sum = 0;
    for (const auto& count : _received) sum += *count;
    return sum;
}

EventCount::EventCount(const Options& options)
    : _acknowledgeEvery(std::max<std::uint64_t>(options.count("window") / 4, 1))
{
}

std::optional<std::uint64_t> EventCount::received(std::span<const std::uint8_t> body)
{
    const auto number = readStamp(body);
    if (number != _count) fail(fmt::format("event {} arrived in place of {}", number, _count));
    ++_count;
    const bool last = body[lastMark] != 0;
    if (last) report({ { "events", static_cast<double>(_count) } });
    if (last || _count % _acknowledgeEvery == 0) return _count;
    return std::nullopt;
}

} // namespace bench
