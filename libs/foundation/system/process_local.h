#pragma once
#include "foundation/uv/system.h"
#include <atomic>
#include <mutex>

namespace fn {

/// An object that each process has once, made at the first use. In a real process the object is never destroyed, so that code that
/// runs at the very end may still use it; each process of the simulated world has an object of its own, which is destroyed with the
/// process. A ProcessLocal has static duration. Thread-safe in real processes, as far as T is.
template <typename T> class ProcessLocal final : uv::System::LocalMaker {
public:
    /// `make` returns a new object; by default `new T()`.
    constexpr explicit ProcessLocal(T* (*make)() = [] { return new T(); }) : _make(make) { }
    ProcessLocal(const ProcessLocal&) = delete;
    ProcessLocal& operator=(const ProcessLocal&) = delete;

    /// This process's own, made at the first call.
    T& get()
    {
        if (auto* const system = uv::System::current()) [[unlikely]]
            return *static_cast<T*>(system->local(*this));
        if (auto* const object = _object.load(std::memory_order_acquire)) [[likely]]
            return *object;
        std::call_once(_once, [this] { _object.store(_make(), std::memory_order_release); });
        return *_object.load(std::memory_order_acquire);
    }

private:
    void* make() const override { return _make(); }
    void destroy(void* object) const noexcept override { delete static_cast<T*>(object); }

    T* (*const _make)();
    std::once_flag _once;
    std::atomic<T*> _object = nullptr; // Asked first: `call_once()` is slower also where it has nothing to do.
};

} // namespace fn
