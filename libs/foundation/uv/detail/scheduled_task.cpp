#include "foundation/uv/detail/scheduled_task.h"

namespace fn::uv {

ScheduledTask::ScheduledTask(Loop::Private& loop, Duration deadline, Task task)
    : LoopMember(loop),
      _task(std::move(task)),
      _position(loop.timers().insert(deadline, *this))
{
}

void ScheduledTask::fire()
{
    leaveQueue();
    _firing = true;
    {
        Task task = std::exchange(_task, Task());
        callGuarded(task);
    }
    _firing = false;
    if (!_handle.load(std::memory_order_relaxed)) delete this;
}

void ScheduledTask::invalidateTarget()
{
    if (loop()->mayTouch()) return cancel();
    _handleGone = true;
    loop()->post([this] { cancel(); });
}

void ScheduledTask::detachHandle()
{
    if (loop()->mayTouch()) return release();
    _handleGone = true;
    loop()->post([this] { release(); });
}

void ScheduledTask::cancel()
{
    leaveQueue();
    const Task dropped = std::exchange(_task, Task()); // Destroyed last: its destructor may run any code.
    release();
}

void ScheduledTask::release()
{
    _handle = nullptr;
    if (!_queued && !_firing) delete this;
}

void ScheduledTask::leaveQueue()
{
    if (std::exchange(_queued, false)) loop()->timers().erase(_position);
}

void ScheduledTask::loopIsEnding()
{
    leaveQueue();
    const Task dropped = std::exchange(_task, Task());
    auto* const handle = _handle.load();
    if (handle && !_handleGone)
        handle->detach(); // Calls `detachHandle()`.
    else
        release();
}

} // namespace fn::uv
