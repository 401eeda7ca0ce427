#pragma once
#include "foundation/uv/loop.h"

namespace fn::uv {

/// Wakes a loop from any thread: after a `send()` the callback runs on the loop's thread, once for all sends that came before.
/// The callback sees everything that a sending thread has written before its send.
class FN_EXPORT Async {
public:
    Async(Loop& loop, Task callback); ///< Loop thread, or before the loop runs.
    Async(const Async&) = delete;
    Async& operator=(const Async&) = delete;
    ~Async(); ///< Loop thread; the callback may destroy its own Async. No callback begins afterwards.

    void send(); ///< Thread-safe.

private:
    struct Private;
    Private* _private;
};

} // namespace fn::uv
