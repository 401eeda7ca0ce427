#pragma once
#include "base/export.h"

namespace fn {

class Handle;

/// What a Handle refers to: a timer, a signal connection. At most one handle refers to a target. A target that dies first
/// calls `detach()` on its handle, so that the handle points at nothing.
class FN_EXPORT HandleTarget {
public:
    HandleTarget() = default;
    HandleTarget(const HandleTarget&) = delete;
    HandleTarget& operator=(const HandleTarget&) = delete;

    virtual void attachHandle(Handle& handle) = 0; ///< `handle` now refers to this target; forget any other.
    virtual void invalidateTarget() = 0; ///< End what this target stands for. It may destroy itself.
    virtual void detachHandle() = 0; ///< Forget the handle and live on. It may destroy itself if it has ended already.

protected:
    virtual ~HandleTarget();
};

/// Owns what it refers to: destroying or replacing a handle ends it, `detach()` lets it live on.
///
/// A handle counts as set until it is invalidated, detached, moved from or replaced. A timer that has fired leaves its
/// handle set; a target that dies first empties it. `invalidate()` inside the target's own callback is allowed.
/// Belongs to the thread of its target.
///
/// The compiler warns where a returned handle is dropped. `nodiscard` stands at the class, since GCC 12 ignores it at a virtual
/// function; beside it, FN_EXPORT has to be written as an attribute of that form.
class [[nodiscard, gnu::visibility("default")]] Handle
{
public:
    Handle() noexcept = default;
    explicit Handle(HandleTarget & target);
    Handle(Handle && other) noexcept;
    Handle& operator=(Handle&& other) noexcept;
    ~Handle();

    void invalidate();
    void detach();
    explicit operator bool() const noexcept { return _target != nullptr; }

private:
    HandleTarget* _target = nullptr;
};

} // namespace fn
