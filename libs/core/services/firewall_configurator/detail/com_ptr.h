#pragma once
#include "platform/com/result_codes.h"
#include "platform/com/unknown.h"
#include <utility>

namespace core::detail {

/// Owns one reference to an object, and releases it.
template <typename T> class ComPtr {
public:
    ComPtr() = default;
    explicit ComPtr(T* owned) noexcept : _object(owned) { } ///< Takes the reference over.
    ComPtr(ComPtr&& other) noexcept : _object(std::exchange(other._object, nullptr)) { }
    ComPtr& operator=(ComPtr&& other) noexcept
    {
        if (this != &other) {
            reset();
            _object = std::exchange(other._object, nullptr);
        }
        return *this;
    }
    ~ComPtr() { reset(); }

    void reset() noexcept
    {
        if (auto* const object = std::exchange(_object, nullptr)) object->Release();
    }

    T* get() const noexcept { return _object; }
    T& operator*() const noexcept { return *_object; }
    T* operator->() const noexcept { return _object; }
    explicit operator bool() const noexcept { return _object != nullptr; }

    /// The place for a call to put a reference that it gives. Releases the present one.
    T** receive() noexcept
    {
        reset();
        return &_object;
    }

private:
    T* _object = nullptr;
};

/// Another interface of the object; empty if the object does not have it.
template <typename T> ComPtr<T> queryInterface(platform::IUnknown& object, platform::REFIID iid)
{
    void* found = nullptr;
    const bool isFound = platform::SUCCEEDED(object.QueryInterface(iid, &found));
    return ComPtr<T>(isFound ? static_cast<T*>(found) : nullptr);
}

} // namespace core::detail
