#pragma once
#include "core/ipc/interface/arguments.h"
#include "core/ipc/interface/interface.h"
#include "foundation/coroutine/next.h"
#include "foundation/signal.h"
#include <memory>

namespace ipc {

/// An event of an interface: the service fires it (`shared.greeted(name)`), and everybody who has a reference can hear it
/// (`greeter->greeted.connect(...)`).
template <typename... Args> class Event : public internal::Member {
public:
    /// What hears it: a callable that takes the values by const&.
    using Callback = typename fn::Signal<const std::decay_t<Args>&...>::Callback;

    /// Fires it, in the service. Throws what encoding throws.
    void operator()(const std::decay_t<Args>&... args)
    {
        fire([&](PayloadWriter& writer) { internal::Arguments<std::decay_t<Args>...>::write(writer, args...); });
    }

    /// Hears it, as long as the handle and the reference live. The values are valid until the callback returns.
    fn::Handle connect(Callback callback) const { return signal().connect(std::move(callback)); }

    /// Hears it once, as `fn::next()` does: `co_await greeter->greeted.next()`.
    auto next() const { return fn::next(signal()); }

    // For references.
    /// For the library: whether anybody has connected through this reference.
    bool isHeard() const { return static_cast<bool>(_signal); }
    /// For the library: reads the values, and calls who listens.
    void receive(PayloadReader& reader)
    {
        std::tuple<std::decay_t<Args>...> args;
        internal::Arguments<std::decay_t<Args>...>::read(reader, args);
        std::apply([&](const auto&... each) { _signal->fire(each...); }, args);
    }

private:
    using Signal = fn::Signal<const std::decay_t<Args>&...>;
    Signal& signal() const
    {
        listen();
        if (!_signal) _signal = std::make_unique<Signal>();
        return *_signal;
    }

    mutable std::unique_ptr<Signal> _signal; // Made when somebody connects.
};

} // namespace ipc
