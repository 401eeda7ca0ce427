#pragma once
#include "foundation/coroutine/settler.h"
#include "foundation/signal.h"
#include <tuple>

namespace fn {
namespace internal {

template <typename... Args> struct Fired {
    using Type = std::tuple<std::decay_t<Args>...>;
};
template <typename Arg> struct Fired<Arg> {
    using Type = std::decay_t<Arg>;
};
template <> struct Fired<> {
    using Type = void;
};

} // namespace internal

/// Fulfilled inside the next `fire()` of the signal, with a copy of its argument, or a tuple of them if there are several. Cancelling
/// the promise disconnects; if the signal goes, a coroutine that awaits the promise gets a `fn::PromiseLostException`.
///
/// A coroutine that asks again before it waits for anything else misses no call of `fire()`. If it does more in between, a callback
/// that sends to a `fn::Channel` keeps what comes meanwhile.
template <typename... Args> auto next(Signal<Args...>& signal)
{
    using Result = typename internal::Fired<Args...>::Type;
    const auto promise = Promise<Result>::create();
    auto connection = signal.connect([waiting = internal::Settler(promise)](const auto&... arguments) {
        if constexpr (std::is_void_v<Result>)
            (*waiting).fulfill();
        else
            (*waiting).fulfill(Result(arguments...));
    });
    promise.onCancel([connection = std::move(connection)]() mutable { connection.invalidate(); });
    return promise;
}

} // namespace fn
