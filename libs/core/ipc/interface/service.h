#pragma once
#include "core/ipc/interface/describe.h"
#include "core/ipc/interface/event.h"
#include "core/ipc/interface/method.h"
#include "core/ipc/interface/property.h"
#include "core/ipc/interface/reference.h"
#include "core/ipc/interface/service_base.h"

namespace ipc {
namespace internal {

template <typename T> inline constexpr bool isPromise = false;
template <typename T> inline constexpr bool isPromise<fn::Promise<T>> = true;

/// Writes a result, which it borrows.
template <typename R> struct ResultWriter {
    const fn::internal::PromiseValue<R>& value;
    void operator()(PayloadWriter& writer) const
    {
        if constexpr (std::is_void_v<R>)
            writer.writeNil();
        else
            Codec<R>::write(writer, value);
    }
};

/// A call that a promise answers.
template <typename R> class PromisedCall final : public ServedCall, public fn::internal::PromiseHandler<R> {
public:
    PromisedCall(ServiceBase& service, const CallableObjectInstance::CallContext& context, fn::Promise<R> promise)
        : _service(service),
          _context(context),
          _promise(std::move(promise))
    {
    }

    ~PromisedCall() override { forget(); }

    void await()
    {
        _isAwaiting = true;
        fn::internal::PromiseAccess::node(_promise)->await(*this);
    }
    void cancel() override
    {
        forget();
        _promise.cancel();
    }

private:
    /// The promise may end later than this.
    void forget()
    {
        if (std::exchange(_isAwaiting, false)) fn::internal::PromiseAccess::node(_promise)->forgetHandler();
    }
    void fulfilled(fn::internal::PromiseValue<R>&& value) override
    {
        _isAwaiting = false;
        const auto self = _service.endServed(*this);
        if (!self) return;
        try {
            _service.answer(_context, ResultWriter<R> { value });
        } catch (...) {
            _service.fail(_context, std::current_exception());
        }
    }
    void rejected(std::exception_ptr failure) override
    {
        _isAwaiting = false;
        if (const auto self = _service.endServed(*this)) _service.fail(_context, failure);
    }
    void dropped() override
    {
        rejected(std::make_exception_ptr(fn::PromiseLostException("The service has forgotten the call")));
    }

    ServiceBase& _service;
    const CallableObjectInstance::CallContext _context;
    fn::Promise<R> _promise;
    bool _isAwaiting = false;
};

/// What the compiler says of a service that does not fit its interface: the names of these functions, and what they are made with.
template <typename Service, typename Member, typename Signature> void serviceHasNoPublicMemberFunctionFor() = delete;
template <typename Service, typename Member, typename Given, typename Wanted> void serviceGivesAnotherResult() = delete;

template <typename Given, typename Wanted>
inline constexpr bool isResult =
    std::is_same_v<std::remove_cvref_t<Given>, fn::Promise<Wanted>> || std::is_convertible_v<Given, Wanted>;
template <typename Given>
inline constexpr bool isResult<Given, void> =
    std::is_same_v<std::remove_cvref_t<Given>, fn::Promise<void>> || std::is_void_v<Given>;

template <typename S, typename M, typename Signature> struct Caller;
template <typename S, typename M, typename R, typename... Args> struct Caller<S, M, R(Args...)> {
    static void call(ServiceBase& base, const CallableObjectInstance::CallContext& context, PayloadReader& reader)
    {
        if constexpr (!requires(S & service) { M::call(service, std::declval<std::decay_t<Args>>()...); }) {
            serviceHasNoPublicMemberFunctionFor<S, M, R(Args...)>();
        } else {
            using Given = decltype(M::call(std::declval<S&>(), std::declval<std::decay_t<Args>>()...));
            if constexpr (isResult<Given, R>)
                serve<Given>(base, context, reader);
            else
                serviceGivesAnotherResult<S, M, Given, R>();
        }
    }

private:
    template <typename Given>
    static void serve(ServiceBase& base, const CallableObjectInstance::CallContext& context, PayloadReader& reader)
    {
        std::tuple<std::decay_t<Args>...> args;
        Arguments<std::decay_t<Args>...>::read(reader, args);
        const auto run = [&]() -> Given {
            return std::apply(
                [&](auto&... each) -> Given { return M::call(static_cast<S&>(base), std::move(each)...); }, args);
        };
        if constexpr (isPromise<std::remove_cvref_t<Given>>) {
            fn::Promise<R> promise = run();
            auto& node = *fn::internal::PromiseAccess::node(promise);
            if (node.hasOutcome()) return base.answer(context, ResultWriter<R> { node.take() });
            auto served = std::make_unique<PromisedCall<R>>(base, context, std::move(promise));
            auto& call = *served;
            if (base.serve(context, std::move(served))) call.await();
        } else if constexpr (std::is_void_v<R>) {
            run();
            base.answer(context, ResultWriter<void> { {} });
        } else {
            const R result = run();
            base.answer(context, ResultWriter<R> { result });
        }
    }
};

template <typename S, typename I, typename M> void appendMethod(std::vector<MethodEntry>& all)
{
    using Type = std::remove_reference_t<decltype(M::in(std::declval<I&>()))>;
    if constexpr (requires { typename Type::Signature; }) {
        all.push_back({ M::name, Type::arguments, &Caller<S, M, typename Type::Signature>::call });
    } else if constexpr (requires(const Type& member, PayloadWriter& writer) { member.answer(writer); }) {
        all.push_back({ M::name, 0,
            [](ServiceBase& base, const CallableObjectInstance::CallContext& context, PayloadReader& reader) {
                reader.finish();
                base.answer(
                    context, [&](PayloadWriter& writer) { M::in(static_cast<S&>(base).shared).answer(writer); });
            } });
    }
}

} // namespace internal

/// An object of interface I: derive from `ipc::Service<MyService, I>`, and give it a public member function (or a callable
/// member) for each method of I, of the same name and with its types. It gives the plain result or a promise of it, and may be a
/// coroutine. An exception is the answer of the call. `shared` holds the events and properties of I.
///
/// A call that is cancelled cancels the promise; so does the end of the service, when its last reference has gone.
template <typename S, typename I> class Service : public internal::ServiceBase {
public:
    using InterfaceType = I; ///< What it serves.

    /// Needs a connected worker; on its loop the service lives.
    explicit Service(Worker& worker) : ServiceBase(worker, I::sharedName()) { internal::bindMembers(shared, *this); }

    I shared; ///< Events to fire and properties to set.

protected:
    ~Service() override = default;

    fn::AutoPtr<ObjectReference> createReference(ObjectReferenceInitializer& initializer) override
    {
        return fn::makeAuto<Reference<I>>(initializer);
    }

private:
    std::span<const internal::MethodEntry> methods() const override
    {
        static const auto all = [] {
            std::vector<internal::MethodEntry> entries;
            I::Members::each([&]<typename M>(M) { internal::appendMethod<S, I, M>(entries); });
            return entries;
        }();
        return all;
    }
    fn::Value description() const override { return describe<I>(); }
};

} // namespace ipc
