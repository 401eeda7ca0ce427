#pragma once
#include "base/exceptions.h"
#include "foundation/uv/loop.h"

namespace fn::uv {

/// Calls back on the loop when this process receives a Unix signal; the signal's own effect does not take place while a
/// watcher for it lives. Made for programs: a library does not decide about signals.
class FN_EXPORT SignalWatcher {
public:
    /// Loop thread, or before the loop runs. `fn::IOException` for a signal that cannot be caught.
    SignalWatcher(Loop& loop, int signal, Task callback);
    SignalWatcher(const SignalWatcher&) = delete;
    SignalWatcher& operator=(const SignalWatcher&) = delete;
    /// Whether the process ignores the signal, because whoever has started it wants that: nohup, or a shell for the background.
    static bool isIgnored(int signal) noexcept;
    ~SignalWatcher(); ///< Loop thread; the callback may destroy its own watcher. No callback begins afterwards.

private:
    struct Private;
    Private* _private; // Lives until libuv has closed the handle.
};

} // namespace fn::uv
