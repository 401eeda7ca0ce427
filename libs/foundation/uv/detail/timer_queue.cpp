#include "foundation/uv/detail/timer_queue.h"
#include "foundation/uv/detail/scheduled_task.h"

namespace fn::uv {

TimerQueue::Position TimerQueue::insert(Duration deadline, ScheduledTask& task)
{
    return _entries.insert({ deadline, Entry { &task, _nextNumber++ } });
}

std::optional<Duration> TimerQueue::earliest() const
{
    if (_entries.empty()) return std::nullopt;
    return _entries.begin()->first;
}

void TimerQueue::fireDue(Duration now)
{
    const auto end = _nextNumber;
    // A clock never goes back, so a timer that is scheduled meanwhile stands behind all timers that are due at `now`.
    while (!_entries.empty()) {
        const auto& [deadline, entry] = *_entries.begin();
        if (deadline > now || entry.number >= end) return;
        entry.task->fire();
    }
}

} // namespace fn::uv
