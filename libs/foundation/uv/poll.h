#pragma once
#include "base/exceptions.h"
#include "foundation/uv/loop.h"

namespace fn::uv {

/// Calls back on the loop while a descriptor is readable, or writable: for those who read and write it themselves. What is
/// not read is announced again in the next turn. An error of the descriptor counts as either: reading tells what it is.
class FN_EXPORT Poll {
public:
    enum class Event { Readable, Writable };

    /// `descriptor` is borrowed, set to non-blocking and not watched otherwise. Loop thread, or before the loop runs.
    /// `fn::IOException` for one that cannot be watched, such as a file's.
    Poll(Loop& loop, int descriptor, Task callback, Event event = Event::Readable);
    Poll(const Poll&) = delete;
    Poll& operator=(const Poll&) = delete;
    ~Poll(); ///< Loop thread; the callback itself may do it. The descriptor may be closed then.

private:
    struct Private;
    Private* _private; // Lives until libuv has closed.
};

} // namespace fn::uv
