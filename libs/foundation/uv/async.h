#pragma once
#include "foundation/uv/loop.h"

namespace fn::uv {

/// Wakes a loop from any thread: `send()` has the callback run on the loop's thread, once for any number of sends before.
/// What a thread did before its send the callback sees.
class FN_EXPORT Async {
public:
    Async(Loop& loop, Task callback); ///< Loop thread, or before the loop runs.
    Async(const Async&) = delete;
    Async& operator=(const Async&) = delete;
    ~Async(); ///< Loop thread; the callback itself may do it. No callback begins afterwards.

    void send(); ///< Thread-safe.

private:
    struct Private;
    Private* _private;
};

} // namespace fn::uv
