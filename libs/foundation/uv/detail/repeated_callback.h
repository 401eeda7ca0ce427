#pragma once
#include "foundation/uv/loop_private.h"

namespace fn::uv {

/// A callback of the user that libuv has called again and again. It stays in its place while it runs: it may run the
/// loop, and is then called again inside; or end what it belongs to, whose owner holds that meanwhile.
class RepeatedCallback {
public:
    explicit RepeatedCallback(Task task) : _task(std::move(task)) { }

    void run()
    {
        ++_depth;
        callGuarded(_task);
        if (--_depth == 0 && _dropped) free();
    }

    /// Frees it, at the latest when it has returned. To be called last: its end may do anything.
    void drop()
    {
        _dropped = true;
        if (_depth == 0) free();
    }

private:
    void free() { const auto freed = std::exchange(_task, {}); }

    Task _task;
    int _depth = 0; // Of calls.
    bool _dropped = false;
};

} // namespace fn::uv
