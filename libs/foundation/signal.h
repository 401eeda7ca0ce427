#pragma once
#include "base/export.h"
#include "foundation/handle.h"
#include "foundation/unhandled_exception.h"
#include <cstdint>
#include <folly/Function.h>
#include <memory>
#include <optional>
#include <tuple>
#include <type_traits>

namespace fn::internal {

class SignalBase;
class SignalCursor;
class SignalState;

/// One connection. The signal's list owns the record; the handle, if the record has one, can end the connection.
class FN_EXPORT SignalRecord : public HandleTarget {
public:
    void attachHandle(Handle& handle) final;
    void invalidateTarget() final;
    void detachHandle() final;

protected:
    ~SignalRecord() override;

private:
    friend SignalCursor;
    friend SignalState;
    void detachFromHandle();

    SignalState* _state = nullptr; // Null once unlinked.
    Handle* _handle = nullptr;
    SignalRecord* _previous = nullptr;
    SignalRecord* _next = nullptr;
    std::uint64_t _serial = 0; // Ascending in the list.
    unsigned _running = 0; // Calls of the callable that are going on; an unlinked record lives until they return.
};

/// The connections of a signal. Made for the first one and freed with the last one, unless `fireOnce()` has been called.
class FN_EXPORT SignalState {
public:
    SignalState() = default;
    SignalState(const SignalState&) = delete;
    SignalState& operator=(const SignalState&) = delete;

    void append(SignalRecord& record) noexcept; ///< Takes ownership of `record`.
    void disconnectAll();

protected:
    virtual ~SignalState();

private:
    friend SignalBase;
    friend SignalCursor;
    friend SignalRecord;
    void disconnect(SignalRecord& record);
    void destroy();

    SignalBase* _signal = nullptr; // Null while the signal is being destroyed.
    SignalRecord* _first = nullptr;
    SignalRecord* _last = nullptr;
    SignalCursor* _innermost = nullptr; // The innermost of the fires that are going on, which knows the one around it.
    std::uint64_t _nextSerial = 0;
    bool _hasFiredOnce = false;
};

/// Walks the records that were connected when the cursor was made and are still connected when their turn comes.
class FN_EXPORT SignalCursor {
public:
    explicit SignalCursor(SignalState* state) noexcept;
    SignalCursor(const SignalCursor&) = delete;
    SignalCursor& operator=(const SignalCursor&) = delete;
    ~SignalCursor();

    /// The next record, or null at the end or when the signal has gone. The record lives until the following call.
    SignalRecord* next();

    /// The signal's state, or null if the state has been freed meanwhile.
    SignalState* state() const noexcept { return _state; }

private:
    friend SignalState;
    void finishCurrent();

    SignalState* _state;
    SignalCursor* _outer = nullptr;
    SignalRecord* _current = nullptr;
    SignalRecord* _next = nullptr;
    std::uint64_t _endSerial = 0; // Records with this serial or a higher one were connected too late.
};

/// The part of a Signal that does not depend on its arguments.
class FN_EXPORT SignalBase {
public:
    SignalBase() noexcept = default;
    SignalBase(SignalBase&& other) noexcept;
    SignalBase& operator=(SignalBase&& other) noexcept;

protected:
    ~SignalBase();
    void adoptState(SignalState* state) noexcept;
    void setFiredOnce() noexcept;
    bool hasFiredOnce() const noexcept;
    SignalState* state() const noexcept { return _state; }

    /// Reports a second `fireOnce()`.
    void checkFireOnce() const;

private:
    friend SignalState;
    SignalState* _state = nullptr;
};

} // namespace fn::internal

namespace fn {

/// An ordered list of callbacks.
///
/// A connection ends with its handle, or with the signal if the handle was detached. Callbacks run in connection order, on the
/// thread that fires; an exception out of one goes to `fn::unhandledException()` and the next one runs. Callbacks may connect,
/// disconnect (themselves, too), fire and destroy the signal. An argument of a value type is copied once for all callbacks, so
/// that it stays valid if a callback destroys the original. Belongs to one thread.
template <typename... Args> class Signal : private internal::SignalBase {
    template <typename T> using Passed = std::conditional_t<std::is_reference_v<T> || std::is_scalar_v<T>, T, const T&>;

    // A function and no constant: where a signal is only declared, the types of the arguments may be incomplete.
    static constexpr bool argumentsCopy() { return (std::is_copy_constructible_v<std::decay_t<Args>> && ...); }

public:
    /// Runs inside `fire()`. What it throws goes to `fn::unhandledException()`.
    using Callback = folly::Function<void(Passed<Args>...)>;

    Signal() = default;
    Signal(Signal&&) noexcept = default; ///< Takes over the connections, and a fire that is going on.
    Signal& operator=(Signal&&) noexcept = default; ///< The same; the former connections of this signal end last.
    ~Signal() = default;

    /// Adds a callback behind the others; a fire that is going on does not call the new one. After a `fireOnce()` the callback runs
    /// at once with the arguments of that call, and the handle is empty.
    Handle connect(Callback callback)
    {
        if (hasFiredOnce()) {
            callAtOnce(callback);
            return {};
        }
        if (!state()) adoptState(new State);
        auto* record = new Record(std::move(callback));
        state()->append(*record);
        return Handle(*record);
    }

    /// Calls the callbacks that are connected now, except one that is disconnected before its turn.
    // By value: what a callback frees may hold the argument. NOLINTNEXTLINE(performance-unnecessary-value-param)
    void fire(Args... args) { fireRecords(args...); }

    /// Fires for the last time: all connections end, and a callback that is connected later is called at once. To be called once.
    void fireOnce(Args... args) requires(argumentsCopy())
    {
        checkFireOnce();
        if (!state()) adoptState(new State);
        static_cast<State*>(state())->firedArguments.emplace(args...);
        setFiredOnce();
        if (auto* survivor = fireRecords(args...)) survivor->disconnectAll();
    }

private:
    struct Record final : internal::SignalRecord {
        explicit Record(Callback c) : callback(std::move(c)) { }
        Callback callback;
    };

    struct State final : internal::SignalState {
        using Arguments = std::conditional_t<argumentsCopy(), std::tuple<std::decay_t<Args>...>, std::tuple<>>;
        std::optional<Arguments> firedArguments;
    };

    // Returns the state, or null if the signal or its state was freed while firing.
    internal::SignalState* fireRecords(Passed<Args>... args)
    {
        if (!state()) return nullptr;
        internal::SignalCursor cursor(state());
        while (auto* record = cursor.next()) {
            try {
                static_cast<Record*>(record)->callback(args...);
            } catch (...) {
                unhandledException();
            }
        }
        return cursor.state();
    }

    void callAtOnce(Callback& callback)
    {
        if constexpr (argumentsCopy()) {
            auto arguments = *static_cast<State*>(state())->firedArguments; // The callback may destroy the signal.
            try {
                std::apply([&](auto&... args) { callback(args...); }, arguments);
            } catch (...) {
                unhandledException();
            }
        }
    }
};

} // namespace fn
