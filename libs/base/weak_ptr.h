#pragma once
#include "base/auto_ptr.h"

namespace fn {

/// A link to a WeakReferencableObject that does not keep it alive. Belongs to the thread of its target.
template <typename T> class WeakPtr {
public:
    WeakPtr() noexcept = default;
    /// Does not keep the object alive; null refers to nothing.
    explicit WeakPtr(T* object) : _object(object)
    {
        if (object) _isThere = static_cast<const WeakReferencableObject*>(object)->_lifetime.watch();
    }
    WeakPtr(const AutoPtr<T>& object) : WeakPtr(object.get()) { } ///< Does not keep the object alive.

    /// The target, or empty once the target's last strong reference has gone (even if its deletion is still to come).
    AutoPtr<T> lock() const noexcept
    {
        return _isThere && _object->tryRetain() ? AutoPtr<T>::adopt(_object) : AutoPtr<T>();
    }

    /// Wraps a callback. The call holds the target, and does nothing if the target has gone.
    template <typename Callback> auto guard(Callback callback) const
    {
        return [weak = *this, callback = std::move(callback)](auto&&... arguments) mutable {
            if (const auto held = weak.lock()) callback(std::forward<decltype(arguments)>(arguments)...);
        };
    }

    void reset() noexcept { *this = WeakPtr(); } ///< Refers to nothing from now on.

private:
    T* _object = nullptr;
    Lifetime::Watch _isThere;
};

} // namespace fn
