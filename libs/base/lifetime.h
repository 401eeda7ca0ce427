#pragma once
#include <cstdint>
#include <utility>

namespace fn {

/// Tells code that may outlive an object whether the object is still there, without holding it. A Lifetime is the last member of an
/// object that has one owner, so it ends before the other members, whose destructors may call out. (A counted object holds itself
/// while it calls out, and is watched by a `WeakPtr`.)
///
/// Lifetime and watches belong to the thread that destroys the object. The first watch allocates a few bytes, later ones nothing.
class Lifetime {
    struct Mark {
        std::uint32_t holders = 1; // The lifetime itself and all watches.
        bool hasEnded = false;
    };

public:
    /// Is true as long as the object is there. Copying a watch copies a pointer and counts.
    class Watch {
    public:
        Watch() noexcept = default; ///< Watches nothing, and is false.
        Watch(const Watch& other) noexcept : _mark(other._mark)
        {
            if (_mark) ++_mark->holders;
        }
        Watch(Watch&& other) noexcept : _mark(std::exchange(other._mark, nullptr)) { }
        Watch& operator=(Watch other) noexcept
        {
            std::swap(_mark, other._mark);
            return *this;
        }
        ~Watch() { release(_mark); }

        explicit operator bool() const noexcept { return _mark && !_mark->hasEnded; }

    private:
        friend Lifetime;
        explicit Watch(Mark* mark) noexcept : _mark(mark) { ++mark->holders; }

        Mark* _mark = nullptr;
    };

    Lifetime() noexcept = default;
    Lifetime(const Lifetime&) = delete;
    Lifetime& operator=(const Lifetime&) = delete;
    ~Lifetime()
    {
        if (_mark) _mark->hasEnded = true;
        release(_mark);
    }

    /// For a method that calls out and goes on: `const auto watch = _lifetime.watch(); onEnd.fire(); if (!watch) return;`
    Watch watch() const { return Watch(mark()); }

    /// Wraps a callback: the call does nothing if the object has gone.
    template <typename Callback> auto guard(Callback callback) const
    {
        return [isThere = watch(), callback = std::move(callback)](auto&&... arguments) mutable {
            if (isThere) callback(std::forward<decltype(arguments)>(arguments)...);
        };
    }

    /// The object counts as gone from now on: for objects that are closed before they are destroyed.
    void end() { mark()->hasEnded = true; }

private:
    static void release(Mark* mark) noexcept
    {
        if (mark && --mark->holders == 0) delete mark;
    }

    Mark* mark() const
    {
        if (!_mark) _mark = new Mark;
        return _mark;
    }

    mutable Mark* _mark = nullptr; // Made by the first watch.
};

} // namespace fn
