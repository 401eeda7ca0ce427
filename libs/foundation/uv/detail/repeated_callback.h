#pragma once
#include "foundation/uv/loop_private.h"

namespace fn::uv {

/// A callback of the user that libuv calls many times. The callback stays in this object while it runs, for it may run the loop,
/// which may call the callback again inside. It may also end its watcher, which stays in memory until `run()` returns.
class RepeatedCallback {
public:
    explicit RepeatedCallback(Task task) : _task(std::move(task)) { }

    void run()
    {
        ++_depth;
        callGuarded(_task);
        if (--_depth == 0 && _dropped) free();
    }

    /// Frees the callback, now or when it has returned. A caller does this last: the callback's destructor may run any code.
    void drop()
    {
        _dropped = true;
        if (_depth == 0) free();
    }

private:
    void free() { const auto freed = std::exchange(_task, {}); }

    Task _task;
    int _depth = 0; // Calls that have not returned.
    bool _dropped = false;
};

} // namespace fn::uv
