#pragma once
#include "base/export.h"
#include <functional>
#include <mutex>
#include <type_traits>
#include <utility>

namespace platform {

/// For tests, and for what only a program can know: while this lives, `Call` is answered by a function, or uses some other T. Nested
/// ones end in reverse order. Thread-safe.
///
/// Each is instantiated in the source file of its call, so that all libraries of a process share it.
template <auto Call, typename T = std::function<std::remove_pointer_t<decltype(Call)>>> class ScopedOverride {
public:
    explicit ScopedOverride(T value) : _previous(exchange(std::move(value))) { }
    ScopedOverride(const ScopedOverride&) = delete;
    ScopedOverride& operator=(const ScopedOverride&) = delete;
    ~ScopedOverride() { exchange(std::move(_previous)); }

    /// The innermost one's; what T is by default where there is none.
    static T current()
    {
        auto& slot = currentSlot();
        const std::lock_guard guard(slot.lock);
        return slot.value;
    }

private:
    struct Slot {
        std::mutex lock;
        T value {};
    };

    static Slot& currentSlot()
    {
        static auto& slot = *new Slot; // Calls are made at the very end of a process, too.
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
