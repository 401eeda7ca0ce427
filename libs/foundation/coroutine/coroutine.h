#pragma once
#include "foundation/coroutine/cancellation.h"
#include "foundation/coroutine/parameters.h"
#include "foundation/promise_node.h"
#include "foundation/work_context.h"
#include <coroutine>
#include <pthread.h>

namespace fn::internal {

/// A coroutine that gives a promise: the part of its node that does not depend on the type of the value. It starts at once and runs
/// to its first await inside the call. Its frame lies behind the node, in the same allocation, and holds the node.
class FN_EXPORT Coroutine {
public:
    Coroutine(const Coroutine&) = delete;
    Coroutine& operator=(const Coroutine&) = delete;

    void begin(std::coroutine_handle<> frame, const std::source_location& place) noexcept;
    void setPlace(const std::source_location& place) noexcept { _place = place; } ///< What is told of its failure.

    /// Whether its promise was cancelled while it ran: its next await is its end.
    bool mustEnd() const noexcept { return _node.cancelled(); }

    void checkAwait(const PromiseNodeBase& node) const; ///< Throws where it can not wait for `node`.

    /// Suspends it. `awaiter`, which lies in its frame, is told of the outcome, and resumes it. `node` is not held, so that one
    /// whose maker has forgotten it shows. This may be gone when the call returns.
    void await(PromiseNodeBase& node, PromiseHandlerBase& awaiter);
    void resume(); ///< Called by the awaiter, inside what settles the awaited promise.
    void goWithLoop(); ///< The awaited promise was dropped, and nothing will run any more.

    /// From its end: destroys the frame, settles the promise with what the node keeps, and has who awaits it go on.
    void finish();

    /// The frame's memory is given back where it never came to run.
    void frameFreed() noexcept;

protected:
    explicit Coroutine(PromiseNodeBase& node) noexcept;
    ~Coroutine() = default;

    AutoPtr<PromiseNodeBase> cancelAwaited(AutoPtr<PromiseNodeBase> awaited, Cancellation& cancellation);
    bool isOnStack() const noexcept { return _isOnStack; }
    void checkIsOwnThread() const; ///< `fn::RuntimeException` elsewhere.

    std::source_location _place;

private:
    friend Cancellation;
    AutoPtr<PromiseNodeBase> destroyFrame(); ///< Gives the reference that the frame had to its node.
    void exchangeContext() noexcept; ///< When it begins or ceases to be on the stack.

    PromiseNodeBase& _node;
    std::coroutine_handle<> _frame; // Null before it has begun, and once it has gone.
    Coroutine** _resumed = nullptr; // Where who resumed it looks for the next one to resume.
    Coroutine* _outer = nullptr; // In the list of a Cancellation.
    AutoPtr<RestOfCancellation> _rest; // Cancelled while it runs: what waits for its next await.
    WorkContext _context = WorkContext::_current; // While it is on the stack, the one of who has called or resumed it.
    const pthread_t _thread;
    bool _isOnStack = true;
};

/// The node of a coroutine's promise.
template <typename T> class CoroutineNode final : public PromiseNode<T>, public Coroutine {
public:
    /// In front of the frame, whose alignment is the one of `operator new`.
    static constexpr std::size_t bytes()
    {
        constexpr std::size_t alignment = __STDCPP_DEFAULT_NEW_ALIGNMENT__;
        return (sizeof(CoroutineNode) + alignment - 1) / alignment * alignment;
    }
    static CoroutineNode& before(void* frame) noexcept
    {
        return *reinterpret_cast<CoroutineNode*>(static_cast<char*>(frame) - bytes());
    }

    static void* allocateFrame(std::size_t frameBytes)
    {
        auto* const memory = static_cast<char*>(::operator new(bytes() + frameBytes));
        (new (memory) CoroutineNode)->retain(); // By the frame.
        return memory + bytes();
    }

    using PromiseNode<T>::keepFailure;
    using PromiseNode<T>::keepValue;

private:
    CoroutineNode() : Coroutine(static_cast<PromiseNodeBase&>(*this)) { }
    ~CoroutineNode() override { this->reportUnseen(&_place); }

    void deleteInstance() override
    {
        this->~CoroutineNode();
        ::operator delete(this);
    }
    const std::source_location* place() const noexcept override { return &_place; }
    void checkThread() const override { checkIsOwnThread(); }
    bool runsNow() const noexcept override { return isOnStack(); }
    AutoPtr<PromiseNodeBase> cancelUpstream(Cancellation& cancellation) override
    {
        return cancelAwaited(this->upstream(), cancellation);
    }
};

/// What `co_await promise` waits with. It lies in the frame of the coroutine.
template <typename T> class PromiseAwaiter final : public PromiseHandler<T> {
public:
    PromiseAwaiter(AutoPtr<PromiseNode<T>> node, Coroutine& coroutine) : _node(std::move(node)), _coroutine(coroutine)
    {
    }

    bool await_ready() const
    {
        if (_node->hasOutcome()) return !_coroutine.mustEnd();
        _coroutine.checkAwait(*_node);
        return false;
    }
    void await_suspend(std::coroutine_handle<>)
    {
        const auto node = std::move(_node);
        _coroutine.await(*node, *this); // This may have gone.
    }
    T await_resume()
    {
        if (_node) {
            const auto node = std::move(_node);
            if constexpr (std::is_void_v<T>)
                return static_cast<void>(node->take());
            else
                return node->take();
        }
        if (!_value) std::rethrow_exception(std::move(_failure));
        if constexpr (!std::is_void_v<T>) return std::move(*_value);
    }

private:
    void fulfilled(PromiseValue<T>&& value) override
    {
        _value = &value;
        _coroutine.resume();
    }
    void rejected(std::exception_ptr failure) override
    {
        _failure = std::move(failure);
        _coroutine.resume();
    }
    void dropped() override
    {
        if (PromiseNodeBase::loopIsEnding()) return _coroutine.goWithLoop();
        _coroutine.await(*PromiseNode<T>::lost(), *this); // By a task: the caller is in the middle of something.
    }
    Coroutine* resumedBy(PromiseNodeBase& node) noexcept override
    {
        _node = AutoPtr<PromiseNode<T>>(static_cast<PromiseNode<T>*>(&node));
        return &_coroutine;
    }

    AutoPtr<PromiseNode<T>> _node; // Null while it is awaited.
    Coroutine& _coroutine;
    PromiseValue<T>* _value = nullptr; // While it is handed over.
    std::exception_ptr _failure;
};

/// How the end of a coroutine comes to its node.
template <typename T, typename State> class CoroutineResult {
public:
    template <typename U = T> void return_value(U&& value) requires std::is_constructible_v<T, U&&>
    {
        static_cast<State*>(this)->node().keepValue(std::forward<U>(value));
    }
};
template <typename State> class CoroutineResult<void, State> {
public:
    void return_void() { static_cast<State*>(this)->node().keepValue(); }
};

/// What the language knows as the promise type: lies in the frame.
template <typename T> class CoroutineState : public CoroutineResult<T, CoroutineState<T>> {
    struct End {
        bool await_ready() const noexcept { return false; }
        void await_suspend(std::coroutine_handle<CoroutineState> frame) const noexcept
        {
            frame.promise().node().finish();
        }
        void await_resume() const noexcept { }
    };

public:
    static void* operator new(std::size_t frameBytes) { return CoroutineNode<T>::allocateFrame(frameBytes); }
    static void operator delete(void* frame, std::size_t) noexcept { CoroutineNode<T>::before(frame).frameFreed(); }

    /// The default argument is the place of the coroutine itself.
    Promise<T> get_return_object(const std::source_location place = std::source_location::current()) noexcept
    {
        node().begin(handle(), place);
        return Promise<T>(AutoPtr<PromiseNode<T>>(&node()));
    }
    std::suspend_never initial_suspend() const noexcept { return {}; }
    End final_suspend() const noexcept { return {}; }
    void unhandled_exception() noexcept { node().keepFailure(std::current_exception()); }

    template <typename U> PromiseAwaiter<U> await_transform(Promise<U>&& promise)
    {
        return { PromiseAccess::node(std::move(promise)), node() };
    }
    template <typename U> PromiseAwaiter<U> await_transform(const Promise<U>& promise)
    {
        return { PromiseAccess::node(promise), node() };
    }

    CoroutineNode<T>& node() noexcept { return CoroutineNode<T>::before(handle().address()); }

private:
    std::coroutine_handle<CoroutineState> handle() noexcept
    {
        return std::coroutine_handle<CoroutineState>::from_promise(*this);
    }
};

} // namespace fn::internal

template <typename T, typename... Parameters> struct std::coroutine_traits<fn::Promise<T>, Parameters...> {
    static_assert(fn::internal::parametersAreKept<T, Parameters...>(),
        "a coroutine takes its parameters by value, or by & what outlives it: const& and && may be gone after its "
        "first co_await");
    using promise_type = fn::internal::CoroutineState<T>;
};
