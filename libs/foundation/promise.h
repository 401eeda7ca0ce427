#pragma once
#include "base/exceptions.h"
#include "foundation/coroutine/coroutine.h"
#include "foundation/promise_node.h"
#include <functional>

namespace fn {
namespace internal {

template <typename T> struct UnwrapPromise {
    using Type = T;
    static constexpr bool isPromise = false;
};
template <typename T> struct UnwrapPromise<Promise<T>> {
    using Type = T;
    static constexpr bool isPromise = true;
};

template <typename F, typename T> struct FulfillmentResult : std::invoke_result<F&, T&&> {
};
template <typename F> struct FulfillmentResult<F, void> : std::invoke_result<F&> {
};

/// The node that `then()` makes. It is also the handler that waits for the node before it: as such it owns the callables
/// and a reference to itself until it has been called.
template <typename T, typename U, typename F, typename R>
class Continuation final : public PromiseNode<U>, public PromiseHandler<T> {
public:
    template <typename G, typename S>
    Continuation(G&& onFulfilled, S&& onRejected)
        : _callables(std::in_place, std::forward<G>(onFulfilled), std::forward<S>(onRejected))
    {
    }

    void waitFor(PromiseNode<T>& upstream)
    {
        this->retain();
        this->linkUpstream(upstream);
        upstream.await(*this);
    }

private:
    void fulfilled(PromiseValue<T>&& value) override
    {
        if constexpr (std::is_void_v<T>)
            run(_callables->first);
        else
            run(_callables->first, std::move(value));
    }

    void rejected(std::exception_ptr failure) override
    {
        if constexpr (std::is_same_v<R, Void>) {
            this->unlinkUpstream();
            this->reject(std::move(failure));
            end();
        } else {
            run(_callables->second, std::move(failure));
        }
    }

    void dropped() override
    {
        this->unlinkUpstream();
        this->lose();
        end();
    }

    template <typename Callable, typename... Arguments> void run(Callable& callable, Arguments&&... arguments)
    {
        using Result = std::invoke_result_t<Callable&, Arguments...>;
        static_assert(std::is_void_v<Result> == std::is_void_v<U> || UnwrapPromise<Result>::isPromise,
            "onRejected must give what onFulfilled gives, or a promise of it");
        this->unlinkUpstream();
        if (this->cancelled()) return end(); // Cancelled while the outcome was on its way.
        try {
            if constexpr (UnwrapPromise<Result>::isPromise) {
                this->follow(std::invoke(callable, std::forward<Arguments>(arguments)...));
            } else if constexpr (std::is_void_v<Result>) {
                std::invoke(callable, std::forward<Arguments>(arguments)...);
                this->fulfill(Void());
            } else {
                this->fulfill(std::invoke(callable, std::forward<Arguments>(arguments)...));
            }
        } catch (...) {
            this->reject(std::current_exception());
        }
        end();
    }

    void end()
    {
        _callables.reset();
        this->release();
    }

    std::optional<std::pair<F, R>> _callables;
};

} // namespace internal

/// An asynchronous result of type T; void: an asynchronous end without a value.
///
/// A coroutine awaits it (`co_await`) and may give it as its own result: docs/coroutines.md.
///
/// The producer creates it, keeps a copy and settles it once; the consumer attaches at most one pair of callables, which
/// run inside `fulfill()` or `reject()`, or in a later task of the run loop when the promise has been settled before.
/// Copies share one state. Dropping them all cancels nothing. A null promise throws `fn::NullPointerException` from every
/// operation; misuse is reported as a broken invariant and never thrown. Belongs to the thread of one run loop.
///
/// If a promise fails and all its copies go before anybody has asked for its outcome, the failure is logged at priority 2, category
/// "core.promise": at most one line a second for each name of a call (`fn::CallInfo`) and place of the coroutine that made the
/// promise, with the number of failures left out. Failures that only say that the object asked has ended (`fn::EndedException`), and
/// failures that go with their loop, are not logged.
template <typename T> class Promise {
    static_assert(!std::is_reference_v<T>);

public:
    using Type = T; ///< Of its value.

    Promise() noexcept = default; ///< Null.
    /// For the library: around a node that is there already.
    explicit Promise(AutoPtr<internal::PromiseNode<T>> node) noexcept : _node(std::move(node)) { }

    /// A pending promise.
    static Promise create() { return Promise(makeAuto<internal::PromiseNode<T>>()); }

    /// One that has its value already.
    static Promise fulfilled(internal::PromiseValue<T> value) requires(!std::is_void_v<T>)
    {
        auto promise = create();
        promise.fulfill(std::move(value));
        return promise;
    }
    /// One that is fulfilled already.
    static Promise fulfilled() requires std::is_void_v<T>
    {
        auto promise = create();
        promise.fulfill();
        return promise;
    }
    /// One that has failed already.
    static Promise rejected(std::exception_ptr failure)
    {
        auto promise = create();
        promise.reject(std::move(failure));
        return promise;
    }

    explicit operator bool() const noexcept { return static_cast<bool>(_node); }
    /// Whether it has neither value nor failure, and was not cancelled.
    bool isPending() const { return !_node->settled(); }
    bool isCancelled() const { return _node->cancelled(); } ///< Whether `cancel()` was called while it was pending.

    /// Settles the promise; ignored if it has been settled or cancelled. A callable that the consumer has attached already runs
    /// before this returns; its exceptions do not come out here.
    void fulfill(internal::PromiseValue<T> value) const requires(!std::is_void_v<T>)
    {
        _node->fulfill(std::move(value));
    }
    void fulfill() const requires std::is_void_v<T> { _node->fulfill(internal::Void()); }
    /// Fails it. Nothing where it is settled already.
    void reject(std::exception_ptr failure) const { _node->reject(std::move(failure)); }

    /// Sets the callable that runs if the promise is cancelled while it is pending: one for each promise. Exceptions of
    /// the callable go to `fn::unhandledException()`.
    void onCancel(folly::Function<void()> callable) const { _node->onCancel(std::move(callable)); }

    /// Ends the promise without a result. The callables attached to it never run; the callable of `onCancel()` runs, and then the
    /// promise whose `then()` made this one is cancelled, too. If that promise is settled already, the callables of that `then()`
    /// do not run any more. Ignored if this promise has been settled.
    void cancel() const { _node->cancel(); }

    /// Says that nobody will ask for the outcome: a failure is not logged.
    void ignore() const { _node->ignore(); }

    /// Attaches callables. The new promise is fulfilled with the result of the callable that runs, rejected with its exception, and
    /// follows a promise that the callable returns, or is rejected with `fn::RuntimeException` if the latter waits for the new promise.
    /// Without `onRejected` a failure passes on. To be called on a thread that runs a loop.
    /// `onFulfilled` takes the value (T&&; nothing for void), `onRejected` the std::exception_ptr.
    template <typename F, typename R = internal::Void> auto then(F&& onFulfilled, R&& onRejected = R()) const
    {
        using Function = std::decay_t<F>;
        using U = typename internal::UnwrapPromise<typename internal::FulfillmentResult<Function, T>::type>::Type;
        auto& node = *_node;
        node.checkLoop();
        auto continuation = makeAuto<internal::Continuation<T, U, Function, std::decay_t<R>>>(
            std::forward<F>(onFulfilled), std::forward<R>(onRejected));
        continuation->waitFor(node);
        return Promise<U>(std::move(continuation));
    }

private:
    friend class internal::PromiseAccess;

    AutoPtr<internal::PromiseNode<T>> _node;
};

} // namespace fn
