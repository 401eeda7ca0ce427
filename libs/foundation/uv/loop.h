#pragma once
#include "foundation/run_loop.h"
#include <memory>

using uv_loop_t = struct uv_loop_s;

namespace fn::uv {

/// A RunLoop over libuv.
///
/// Destroying a loop runs none of its queued tasks, except deletions: tasks, timers and callbacks are destroyed in rounds until
/// none is left (a task that a destructor posts meanwhile joins the next round). Streams are closed, then libuv's handles are
/// closed and awaited. Streams, processes and handles that outlive the loop may still be called: they do nothing, or throw.
/// The first loop has this process ignore SIGPIPE.
class FN_EXPORT Loop final : public RunLoop {
public:
    /// `clock` is borrowed for the life of the loop; by default the system's monotonic clock.
    Loop();
    explicit Loop(const Clock& clock);
    ~Loop() override;

    void run(int mode = 0) override;
    void stop() override;
    void post(Task task) override;
    void postDeletion(Task deletion) override;
    Handle schedule(Duration delay, Task task) override;
    const Clock& clock() const override;
    Loop& uvLoop() override { return *this; }

    bool isCurrentThread() const noexcept; ///< Whether the loop runs on the calling thread now.
    bool runsElsewhere() const noexcept; ///< Whether it runs on another thread now.
    uv_loop_t* uvHandle() noexcept; ///< For integrating further event sources. Loop thread; not in the simulated world.

    struct Private;
    Private& internals() noexcept { return *_private; } ///< For the classes of this folder.

private:
    std::unique_ptr<Private> _private;
};

} // namespace fn::uv
