#pragma once
#include "foundation/uv/system.h"
#include <mutex>

namespace fn {

/// What there is once in each process, made at the first use. In a real process it is never destroyed, so that what ends late
/// may still use it; in the simulated world each process has one of its own, which goes with it. Static duration.
/// Thread-safe in real processes, as far as T is.
template <typename T> class ProcessLocal final : uv::System::LocalMaker {
public:
    /// `make` gives a new one; by default `new T()`.
    constexpr explicit ProcessLocal(T* (*make)() = [] { return new T(); }) : _make(make) { }
    ProcessLocal(const ProcessLocal&) = delete;
    ProcessLocal& operator=(const ProcessLocal&) = delete;

    T& get()
    {
        if (auto* const system = uv::System::current()) [[unlikely]]
            return *static_cast<T*>(system->local(*this));
        std::call_once(_once, [this] { _object = _make(); });
        return *_object;
    }

private:
    void* make() const override { return _make(); }
    void destroy(void* object) const noexcept override { delete static_cast<T*>(object); }

    T* (*const _make)();
    std::once_flag _once;
    T* _object = nullptr;
};

} // namespace fn
