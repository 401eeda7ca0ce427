#pragma once
#include "foundation/uv/detail/loop_private.h"

namespace fn::uv {

/// A timer: a task and its deadline. It frees itself once it has fired or been cancelled and no handle refers to it.
class ScheduledTask final : public HandleTarget, public LoopMember {
public:
    ScheduledTask(Loop::Private& loop, Duration deadline, Task task);

    void fire();

    void attachHandle(Handle& handle) override { _handle.store(&handle, std::memory_order_relaxed); }
    void invalidateTarget() override;
    void detachHandle() override;
    void loopIsEnding() override;

private:
    ~ScheduledTask() override = default;

    void cancel();
    void release(); // No handle refers to this timer any more.
    void leaveQueue();

    Task _task; // Empty once fired or cancelled.
    TimerQueue::Position _position;
    std::atomic<Handle*> _handle { nullptr };
    bool _queued = true;
    bool _firing = false;
    // A handle has ended on another thread, and has posted `cancel()` or `release()` to the loop.
    std::atomic<bool> _handleGone { false };
};

} // namespace fn::uv
