#pragma once
#include "base/export.h"

namespace fn {

class Handle;

/// The thing that a Handle refers to: a timer, a signal connection. At most one handle refers to a target. A target that ends
/// before its handle calls `detach()` on the handle, which then refers to nothing.
class FN_EXPORT HandleTarget {
public:
    HandleTarget() = default;
    HandleTarget(const HandleTarget&) = delete;
    HandleTarget& operator=(const HandleTarget&) = delete;

    virtual void attachHandle(Handle& handle) = 0; ///< `handle` refers to this target now, and no other handle does.
    virtual void invalidateTarget() = 0; ///< Ends the timer or connection. The target may destroy itself.
    virtual void detachHandle() = 0; ///< No handle refers to this target now. A target that has ended destroys itself.

protected:
    virtual ~HandleTarget();
};

/// Owns its target: destroying or replacing the handle ends the target, `detach()` lets the target live on.
///
/// A handle counts as set until it is invalidated, detached, moved from or replaced. A timer that has fired leaves its
/// handle set; a connection or a loop that ends empties it. `invalidate()` inside the target's own callback is allowed.
/// Belongs to the thread of its target.
///
/// The compiler warns if a returned handle is dropped. `nodiscard` is an attribute of the class, since GCC 12 ignores it at a
/// virtual function; beside `nodiscard`, FN_EXPORT has to be written as an attribute of the same form.
class [[nodiscard, gnu::visibility("default")]] Handle
{
public:
    Handle() noexcept = default;
    explicit Handle(HandleTarget & target); ///< Owns `target` from now on.
    Handle(Handle && other) noexcept;
    Handle& operator=(Handle&& other) noexcept;
    ~Handle();

    void invalidate(); ///< Ends the target, and refers to nothing.
    void detach(); ///< Lets the target live on, and refers to nothing.
    explicit operator bool() const noexcept { return _target != nullptr; }

private:
    HandleTarget* _target = nullptr;
};

} // namespace fn
