#pragma once
#include "foundation/duration.h"
#include <cstdint>
#include <map>
#include <optional>

namespace fn::uv {

class ScheduledTask;

/// The waiting timers of a loop in the order in which they fire: by deadline, with one deadline in the order of scheduling.
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

    /// Fires the timers that are due at `now` and were scheduled before this call. A timer that another timer schedules meanwhile
    /// waits for a later call, even without a delay, so that timers never keep the loop from its I/O.
    void fireDue(Duration now);

private:
    std::multimap<Duration, Entry> _entries;
    std::uint64_t _nextNumber = 0;
};

} // namespace fn::uv
