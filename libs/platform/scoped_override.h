#pragma once
#include "base/export.h"
#include <functional>
#include <mutex>
#include <type_traits>
#include <utility>

namespace platform {

/// For tests, and for answers that only a program can know: while this object lives, a function answers `Call`, or `Call` uses
/// another T. Nested objects end in reverse order. Thread-safe.
///
/// Each override is instantiated in the source file of its call, so that all libraries of a process share it.
template <auto Call, typename T = std::function<std::remove_pointer_t<decltype(Call)>>> class ScopedOverride {
public:
    explicit ScopedOverride(T value) : _previous(exchange(std::move(value))) { }
    ScopedOverride(const ScopedOverride&) = delete;
    ScopedOverride& operator=(const ScopedOverride&) = delete;
    ~ScopedOverride() { exchange(std::move(_previous)); }

    /// The value of the innermost override; a default T if there is none.
    static T current()
    {
        auto& slot = currentSlot();
        const std::lock_guard guard(slot.lock);
        return slot.value;
    }

private:
    struct Slot {
        std::mutex lock;
        T value;
    };

    static Slot& currentSlot()
    {
        static auto& slot = *new Slot(); // Never destroyed: calls come at the very end of a process, too.
        return slot;
    }

    static T exchange(T value)
    {
        auto& slot = currentSlot();
        const std::lock_guard guard(slot.lock);
        return std::exchange(slot.value, std::move(value));
    }

    T _previous;
};

} // namespace platform
