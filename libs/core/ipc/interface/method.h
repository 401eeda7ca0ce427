#pragma once
#include "core/ipc/interface/arguments.h"
#include "core/ipc/interface/interface.h"
#include "core/ipc/object/pending_call.h"
#include "foundation/promise.h"

namespace ipc {
namespace internal {

/// The promise of a call whose result is an R.
template <typename R> class TypedCall final : public fn::internal::PromiseNode<R>, public PendingCall {
public:
    explicit TypedCall(const char* method) : PendingCall(static_cast<fn::internal::PromiseNodeBase&>(*this), method)
    {
        this->reserveCancellation();
    }
    using PendingCall::release;
    using PendingCall::retain;

private:
    ~TypedCall() override = default;
    void wasCancelled() override { PendingCall::wasCancelled(); }
    void fulfillWith(PayloadReader& result) override
    {
        fn::internal::PromiseValue<R> value {};
        if constexpr (!std::is_void_v<R>) Codec<R>::read(result, value);
        result.finish();
        this->fulfill(std::move(value));
    }
};

/// The call operator of a Caller, and what the compiler says of arguments that do not fit: which one, and both lists.
template <typename Caller, typename R, typename... Args> class CallOperator {
    template <typename... A>
    static constexpr int wrong = internal::WrongArgument<std::tuple<std::decay_t<Args>...>, A...>::find();

public:
    /// Calls it. The promise ends as `ipc::CallableObjectReference::callMethod()` says; an answer that is no R rejects it.
    template <typename... A, int wrongArgument = wrong<A...>>
    requires(wrongArgument == 0 && !(internal::mustBeNamed<A>() || ...)) fn::Promise<R>
    operator()(A&&... args) const { return static_cast<const Caller&>(*this).start(static_cast<A&&>(args)...); }
    template <typename... A, int wrongArgument = wrong<A...>>
    requires(wrongArgument != 0) fn::Promise<R>
    operator()(A&&...) const = delete;
    template <typename... A, int aggregatesAreNamedFirstWithGCC12 = wrong<A...>>
    requires(aggregatesAreNamedFirstWithGCC12 == 0 && (internal::mustBeNamed<A>() || ...)) fn::Promise<R>
    operator()(A&&...) const = delete;
};

} // namespace internal

/// As the second parameter of a method: it may be called again where nobody knows whether the first call was carried out, since the
/// service has gone meanwhile. `ipc::Remote` does so.
struct Repeatable { };

template <typename Signature, typename Repetition = void> class Method;

/// A method of an interface, called like a function: `co_await greeter->greet("Ada")`.
template <typename R, typename... Args, typename Repetition>
class Method<R(Args...), Repetition> : public internal::Member,
                                       public internal::CallOperator<Method<R(Args...), Repetition>, R, Args...> {
public:
    using Result = R; ///< What the promise of a call gives.
    using Signature = R(Args...); ///< As the interface declares it.
    static constexpr std::size_t arguments = sizeof...(Args); ///< How many arguments a call has.

    /// The method with a time limit: `greeter->greet.within(2s)("Ada")`. At its end the promise is rejected with
    /// `fn::OperationTimedOutException`, and the service is told that the call is cancelled. Borrows the method.
    class Limited : public internal::CallOperator<Limited, R, Args...> {
        friend Method;
        friend internal::CallOperator<Limited, R, Args...>;
        Limited(const Method& method, fn::Duration limit) : _method(method), _limit(limit) { }
        template <typename... A> fn::Promise<R> start(const A&... args) const { return _method.send(_limit, args...); }

        const Method& _method;
        fn::Duration _limit;
    };
    /// The method with this limit, for one call. Zero or less is no limit of its own.
    Limited within(fn::Duration limit) const { return Limited(*this, limit); }
    template <typename Rep, typename Period> Limited within(std::chrono::duration<Rep, Period> limit) const
    {
        return within(fn::Duration(limit));
    }

private:
    friend internal::CallOperator<Method, R, Args...>;
    template <typename... A> fn::Promise<R> start(const A&... args) const { return send(fn::Duration(), args...); }

    template <typename... A> fn::Promise<R> send(fn::Duration limit, const A&... args) const
    {
        auto call = fn::makeAuto<internal::TypedCall<R>>(name());
        if constexpr (std::is_same_v<Repetition, Repeatable>) call->setRepeatable();
        const auto write = [&](PayloadWriter& writer) {
            internal::Arguments<std::decay_t<Args>...>::write(writer, args...);
        };
        Member::start(fn::AutoPtr<PendingCall>(call.get()), write, limit);
        return fn::Promise<R>(std::move(call));
    }
};

} // namespace ipc
