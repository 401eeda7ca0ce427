#pragma once
#include "core/ipc/interface/method.h"
#include "foundation/signal.h"
#include "foundation/work_context.h"
#include <memory>

namespace ipc {
namespace internal {

/// For a property that could not be asked for its value.
FN_EXPORT void logUnlessGone(const std::exception_ptr& failure);

} // namespace internal

/// A value that a service owns and everybody who has a reference can watch. On the wire it is a method of its name without
/// arguments, which gives the value, and an event of its name with each new value.
template <typename T> class Property : public internal::Member {
public:
    /// What watches it: a callable that takes the value by const&.
    using Callback = typename fn::Signal<const T&>::Callback;

    Property() = default;
    explicit Property(T value) : _value(std::move(value)) { } ///< Begins with this value, without telling anybody.
    ~Property()
    {
        if (_asking) _asking.cancel();
    }

    // --- In the service

    const T& operator*() { return _value; } // Not const: who calls has no value, but may `get()` or `watch()` it.
    const T* operator->() { return &_value; }

    /// Sets the value, and tells those who watch it unless it is the same. Throws what encoding throws.
    Property& operator=(T value)
    {
        if constexpr (requires { value == value; }) {
            if (value == _value) return *this;
        }
        _value = std::move(value);
        fire([&](PayloadWriter& writer) { Codec<T>::write(writer, _value); });
        return *this;
    }

    // --- At the caller

    fn::Promise<T> get() const { return ask({}); } ///< Asks the service for the value as it is now.

    /// Calls back with the current value, in a later task, and then with each new one, none left out and none twice, as long as the
    /// handle and the reference live. While the object of an `ipc::Remote` is away, its current value is the one that came last.
    fn::Handle watch(Callback callback) const
    {
        listen();
        if (!_watch) _watch = std::make_unique<Watch>();
        auto watcher = std::make_shared<Watcher>(std::move(callback));
        auto handle = _watch->connect([watcher](const T& value) { watcher->tell(value); });
        if (_hasValue)
            loop().post([weak = std::weak_ptr(watcher), value = _value] {
                if (const auto watcher = weak.lock(); watcher && !watcher->isTold) watcher->tell(value);
            });
        else if (!_asking)
            refresh();
        return handle;
    }

    // For references. A change before the answer is not heard: the answer, which comes behind it, holds it.
    /// For the library: reads a new value, and tells who watches.
    void receive(PayloadReader& reader)
    {
        T value {};
        Codec<T>::read(reader, value);
        reader.finish();
        _value = std::move(value);
        _watch->fire(_value);
    }
    bool isHeard() const { return _isKnown; } ///< For the library: whether new values are to be received.
    /// For the library: writes the value for who asks.
    void answer(PayloadWriter& writer) const { Codec<T>::write(writer, _value); }

    /// The object may be another one now: who watches it is told its value, unless it is the one that was told last.
    void refresh() const
    {
        if (!_watch) return;
        _isKnown = false;
        if (_asking) std::exchange(_asking, {}).cancel();
        const fn::ScopedContext nobody { fn::WorkContext() }; // The value is for who watches later, too.
        _asking = ask(noTimeLimit);
        _asking.then(
            [this](T&& value) {
                _asking = {};
                _isKnown = true;
                const bool wasTold = std::exchange(_hasValue, true);
                if constexpr (requires { value == value; }) {
                    if (wasTold && value == _value) return;
                }
                _value = std::move(value);
                _watch->fire(_value);
            },
            [this](const std::exception_ptr& failure) {
                _asking = {};
                _isKnown = true; // What can be read of later changes is told.
                internal::logUnlessGone(failure);
            });
    }

private:
    using Watch = fn::Signal<const T&>;

    struct Watcher {
        explicit Watcher(Callback callback) : callback(std::move(callback)) { }
        void tell(const T& value)
        {
            isTold = true;
            callback(value);
        }
        Callback callback;
        bool isTold = false;
    };

    fn::Promise<T> ask(fn::Duration limit) const
    {
        auto call = fn::makeAuto<internal::TypedCall<T>>(name());
        start(
            fn::AutoPtr<PendingCall>(call.get()), [](PayloadWriter& writer) { writer.writeNil(); }, limit);
        return fn::Promise<T>(std::move(call));
    }

    mutable T _value {}; // In a reference the value that came last.
    mutable bool _hasValue = false; // In a reference: whether one has come.
    mutable bool _isKnown = false; // ... and whether each change is heard.
    mutable fn::Promise<T> _asking; // The call that asks for the value; null if none is under way.
    mutable std::unique_ptr<Watch> _watch; // Made when somebody watches.
};

} // namespace ipc
