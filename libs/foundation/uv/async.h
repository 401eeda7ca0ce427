#pragma once
#include "foundation/uv/loop.h"

namespace fn::uv {

/// Wakes a loop from any thread: `send()` has the callback run on the loop's thread, once for any number of sends before.
class FN_EXPORT Async {
public:
    Async(Loop& loop, Task callback); ///< Loop thread, or before the loop runs.
    Async(const Async&) = delete;
    Async& operator=(const Async&) = delete;
    ~Async(); ///< Loop thread. No callback runs afterwards.

    void send(); ///< Thread-safe.

private:
    struct Private;
    Private* _private;
};

} // namespace fn::uv
