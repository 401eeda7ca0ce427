#pragma once
#include "foundation/uv/loop.h"

namespace fn::uv {

/// Calls back once in each turn of a loop, next to its wait for I/O. It neither ends the wait nor keeps a loop busy.
class FN_EXPORT TurnWatcher {
public:
    enum class Moment { BeforePoll, AfterPoll }; ///< A prepare or a check handle of libuv.

    TurnWatcher(Loop& loop, Moment moment, Task callback); ///< Loop thread, or before the loop runs.
    TurnWatcher(const TurnWatcher&) = delete;
    TurnWatcher& operator=(const TurnWatcher&) = delete;
    ~TurnWatcher(); ///< Loop thread; the callback itself may do it. No callback begins afterwards.

private:
    struct Private;
    Private* _private; // Lives until libuv has closed.
};

} // namespace fn::uv
