#pragma once
#include "foundation/auto_ptr.h"

namespace fn {

/// A link to a WeakReferencableObject that does not keep it alive. Belongs to the thread of its target.
template <typename T> class WeakPtr {
public:
    WeakPtr() noexcept = default;
    explicit WeakPtr(T* object) : _object(object), _link(object ? object->weakLink() : nullptr)
    {
        if (_link) _link->references.fetch_add(1, std::memory_order_relaxed);
    }
    WeakPtr(const AutoPtr<T>& object) : WeakPtr(object.get()) { }
    WeakPtr(const WeakPtr& other) noexcept : _object(other._object), _link(other._link)
    {
        if (_link) _link->references.fetch_add(1, std::memory_order_relaxed);
    }
    WeakPtr(WeakPtr&& other) noexcept
        : _object(std::exchange(other._object, nullptr)),
          _link(std::exchange(other._link, nullptr))
    {
    }
    WeakPtr& operator=(WeakPtr other) noexcept
    {
        std::swap(_object, other._object);
        std::swap(_link, other._link);
        return *this;
    }
    ~WeakPtr()
    {
        if (_link) internal::releaseWeakLink(_link);
    }

    /// The target, or empty once its last strong reference has gone (even where its deletion is still to come).
    AutoPtr<T> lock() const noexcept
    {
        return _link && _link->target && _link->target->tryRetain() ? AutoPtr<T>::adopt(_object) : AutoPtr<T>();
    }

    void reset() noexcept { *this = WeakPtr(); }

private:
    T* _object = nullptr;
    internal::WeakLink* _link = nullptr;
};

} // namespace fn
