#pragma once
#include "base/exceptions.h"
#include "base/ref_counted.h"
#include <compare>
#include <concepts>
#include <cstddef>
#include <functional>
#include <typeinfo>
#include <utility>

namespace fn {

namespace internal {
[[noreturn]] FN_EXPORT void throwNullPointer(const std::type_info& type);

template <typename U, typename T>
concept PointsTo = std::convertible_to<U*, T*>;
} // namespace internal

/// A strong reference to an object that derives from RefCountedBase. Dereferencing an empty one throws
/// `fn::NullPointerException` "Attempted to dereference NULL pointer of class " + the class name.
/// Copies may live on any thread; the object itself says which threads may call it.
template <typename T> class AutoPtr {
public:
    using element_type = T; ///< The class that it points to.

    AutoPtr() noexcept = default;
    AutoPtr(std::nullptr_t) noexcept { } ///< Holds nothing.
    /// Shares the object; null holds nothing.
    explicit AutoPtr(T* object) noexcept : _object(object)
    {
        if (_object) _object->retain();
    }
    AutoPtr(const AutoPtr& other) noexcept : AutoPtr(other._object) { }
    AutoPtr(AutoPtr&& other) noexcept : _object(std::exchange(other._object, nullptr)) { }
    template <internal::PointsTo<T> U> AutoPtr(const AutoPtr<U>& other) noexcept : AutoPtr(other.get()) { }
    template <internal::PointsTo<T> U> AutoPtr(AutoPtr<U>&& other) noexcept : _object(other.leak()) { }
    ~AutoPtr()
    {
        if (_object) _object->release();
    }

    AutoPtr& operator=(AutoPtr other) noexcept
    {
        std::swap(_object, other._object);
        return *this;
    }

    /// Takes over a reference that the caller already owns (from `leak()` or a successful `tryRetain()`).
    static AutoPtr adopt(T* object) noexcept
    {
        AutoPtr result;
        result._object = object;
        return result;
    }

    /// Hands the reference to the caller, who must release it.
    [[nodiscard]] T* leak() noexcept { return std::exchange(_object, nullptr); }

    /// Borrowed, as long as somebody holds the object; null where this holds nothing.
    T* get() const noexcept { return _object; }
    T& operator*() const { return *checked(); }
    T* operator->() const { return checked(); }
    explicit operator bool() const noexcept { return _object != nullptr; }

    void reset() noexcept { AutoPtr().swap(*this); } ///< Lets go of the object, and holds nothing.
    /// Exchanges what the two hold, without counting.
    void swap(AutoPtr& other) noexcept { std::swap(_object, other._object); }

    friend bool operator==(const AutoPtr& a, const AutoPtr& b) noexcept { return a._object == b._object; }
    friend bool operator==(const AutoPtr& a, std::nullptr_t) noexcept { return a._object == nullptr; }
    friend auto operator<=>(const AutoPtr& a, const AutoPtr& b) noexcept
    {
        return std::compare_three_way()(a._object, b._object);
    }

private:
    T* checked() const
    {
        if (!_object) [[unlikely]]
            internal::throwNullPointer(typeid(T));
        return _object;
    }

    T* _object = nullptr;
};

/// `new T(arguments...)` in an AutoPtr.
template <typename T, typename... Arguments> AutoPtr<T> makeAuto(Arguments&&... arguments)
{
    return AutoPtr<T>(new T(std::forward<Arguments>(arguments)...));
}

/// The object as a U, or empty if the object is no U.
template <typename U, typename T> AutoPtr<U> dynamicCast(const AutoPtr<T>& object) noexcept
{
    return AutoPtr<U>(dynamic_cast<U*>(object.get()));
}

} // namespace fn

template <typename T> struct std::hash<fn::AutoPtr<T>> {
    std::size_t operator()(const fn::AutoPtr<T>& object) const noexcept { return std::hash<T*>()(object.get()); }
};
