#pragma once
#include "base/exceptions.h"
#include "foundation/uv/loop.h"

namespace fn::uv {

/// Calls back on the loop while a descriptor is readable or writable: for code that itself reads and writes the descriptor. Bytes
/// that nobody reads are announced again in the next turn. An error counts as either event; reading or writing tells which it is.
class FN_EXPORT Poll {
public:
    /// What is waited for.
    enum class Event { Readable, Writable };

    /// `descriptor` is borrowed, set to non-blocking, and has no other watcher. Loop thread, or before the loop runs.
    /// `fn::IOException` for a descriptor that cannot be watched, such as a file's.
    Poll(Loop& loop, int descriptor, Task callback, Event event = Event::Readable);
    Poll(const Poll&) = delete;
    Poll& operator=(const Poll&) = delete;
    ~Poll(); ///< Loop thread; the callback may destroy its own Poll. The descriptor may be closed afterwards.

private:
    struct Private;
    Private* _private; // Lives until libuv has closed the handle.
};

} // namespace fn::uv
