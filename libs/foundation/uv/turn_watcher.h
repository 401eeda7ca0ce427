#pragma once
#include "foundation/uv/loop.h"

namespace fn::uv {

/// Calls back once in each turn of a loop, just before or after its wait for I/O. A watcher does not end or shorten the wait.
class FN_EXPORT TurnWatcher {
public:
    /// When it is called in each turn: a prepare handle of libuv, and a check handle.
    enum class Moment { BeforePoll, AfterPoll }; ///< A prepare handle of libuv, and a check handle.

    TurnWatcher(Loop& loop, Moment moment, Task callback); ///< Loop thread, or before the loop runs.
    TurnWatcher(const TurnWatcher&) = delete;
    TurnWatcher& operator=(const TurnWatcher&) = delete;
    ~TurnWatcher(); ///< Loop thread; the callback may destroy its own watcher. No callback begins afterwards.

private:
    struct Private;
    Private* _private; // Lives until libuv has closed the handle.
};

} // namespace fn::uv
