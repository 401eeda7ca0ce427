#pragma once
#include "driver/schedule.h"
#include <functional>
#include <optional>
#include <span>

namespace bench {

/// The load of a publisher, the same for every system. It begins when all subscribers have acknowledged 0 events, and
/// keeps the slowest of them `window` events behind at most, since a flood without a bound would measure memory. At the
/// end of the schedule it publishes one last event, waits until all are acknowledged, and reports.
class EventLoad {
public:
    EventLoad(const Options& options, std::function<void(std::span<const std::uint8_t> body)> publish);

    /// Subscriber `index` has received `events` so far.
    void acknowledged(std::uint64_t index, std::uint64_t events);

private:
    void publishNext(bool last);
    std::uint64_t delivered() const; // To all subscribers together.

    const std::function<void(std::span<const std::uint8_t>)> _publish;
    const std::uint64_t _window;
    std::vector<std::optional<std::uint64_t>> _received; // By subscriber; empty until it has joined.
    std::vector<std::uint8_t> _body;

    Schedule _schedule;
    std::uint64_t _published = 0;
    bool _lastPublished = false;
};

/// The receiving side of one subscriber: checks that events arrive whole, in order and once, and reports their number.
class EventCount {
public:
    explicit EventCount(const Options& options);

    /// The number to acknowledge, where it is time to.
    std::optional<std::uint64_t> received(std::span<const std::uint8_t> body);

private:
    const std::uint64_t _acknowledgeEvery;
    std::uint64_t _count = 0;
};

} // namespace bench
