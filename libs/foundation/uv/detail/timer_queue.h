#pragma once
#include "foundation/duration.h"
#include <cstdint>
#include <map>
#include <optional>

namespace fn::uv {

class ScheduledTask;

/// The waiting timers of a loop in the order they fire: by deadline, equal ones as they were scheduled.
class TimerQueue {
public:
    struct Entry {
        ScheduledTask* task;
        std::uint64_t number; // Counts up with each insertion.
    };
    using Position = std::multimap<Duration, Entry>::iterator;

    Position insert(Duration deadline, ScheduledTask& task);
    void erase(Position position) { _entries.erase(position); }

    bool empty() const noexcept { return _entries.empty(); }
    std::optional<Duration> earliest() const;

    /// Fires what is due and was scheduled before this call: a timer that a timer schedules waits for a later call, even
    /// at no delay, so that timers never keep I/O from its turn.
    void fireDue(Duration now);

private:
    std::multimap<Duration, Entry> _entries;
    std::uint64_t _nextNumber = 0;
};

} // namespace fn::uv
