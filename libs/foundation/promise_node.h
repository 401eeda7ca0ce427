#pragma once
#include "base/auto_ptr.h"
#include "base/export.h"
#include <exception>
#include <folly/Function.h>
#include <optional>
#include <source_location>
#include <type_traits>
#include <utility>

namespace fn {

template <typename T> class Promise;

namespace internal {

class Cancellation;
class Coroutine;
class RestOfCancellation;

/// The value of a promise of void, and the `onRejected` of a `then()` that was given none.
struct Void { };

template <typename T> using PromiseValue = std::conditional_t<std::is_void_v<T>, Void, T>;

class PromiseNodeBase;

/// Waits for the outcome of a node. One of its functions is called, once, and that ends the handler.
class FN_EXPORT PromiseHandlerBase {
public:
    virtual void rejected(std::exception_ptr failure) = 0;
    virtual void dropped() = 0; ///< No outcome will come: the node was cancelled or freed, or has another handler now.

    /// Called instead of the others when a coroutine has ended and its `node` keeps the outcome: a handler that resumes a coroutine
    /// takes a reference to the node and returns that coroutine, so that a long chain of coroutines ends without recursion. Null
    /// stands for a handler that is to be called as usual.
    virtual Coroutine* resumedBy(PromiseNodeBase& node) noexcept;

protected:
    ~PromiseHandlerBase() = default;
};

template <typename T> class PromiseHandler : public PromiseHandlerBase {
public:
    virtual void fulfilled(PromiseValue<T>&& value) = 0;

protected:
    ~PromiseHandler() = default;
};

/// Opens promises to the classes that are built on their nodes.
class PromiseAccess {
public:
    template <typename P> static auto&& node(P&& promise) { return std::forward<P>(promise)._node; }
};

/// The state that the copies of a promise share: the part that does not depend on the type of the value.
class FN_EXPORT PromiseNodeBase : public RefCountedObject {
public:
    bool settled() const noexcept { return _settled; }
    bool cancelled() const noexcept { return _cancelled; }

    void reject(std::exception_ptr failure);
    void cancel();
    void cancel(Cancellation& cancellation); ///< Makes this node a part of `cancellation`.
    void onCancel(folly::Function<void()> callable);
    void ignore(); ///< Says that nobody will ask for the outcome.

    /// Whether there is an outcome that nobody has asked for: `PromiseNode::take()` gives it.
    bool hasOutcome() const noexcept { return _settled && _kept != Outcome::None && !_handlerInstalled; }
    bool isRunning() const noexcept; ///< Whether a coroutine that this node waits for is on the stack.

    /// Reports a `then()` on a thread that runs no loop.
    static void checkLoop();

    /// Posts to the loop that runs on this thread, or else to the default one.
    static void post(folly::Function<void()> task);

    /// Whether tasks that are posted now never run: a loop is being destroyed.
    static bool loopIsEnding() noexcept;

    /// Gives the outcome to `handler`: when the node is settled, or in a task of its own if the node is settled already.
    void await(PromiseHandlerBase& handler);
    void forgetHandler() noexcept { _handler = nullptr; } ///< Called by a handler that waits no longer.
    void lose(); ///< Says that nobody will settle this node: the node that it waits for was dropped.

    /// Settles the node with the outcome that it keeps, unless it was cancelled. A coroutine that waits for the node is put into
    /// `resumed`, to be resumed by the caller.
    void settleWithKept(Coroutine** resumed);

    /// The place of the coroutine that made this node; null for other nodes.
    virtual const std::source_location* place() const noexcept { return nullptr; }

    /// Throws `fn::RuntimeException` if the calling thread may not await this node.
    virtual void checkThread() const { }

    /// Has `upstream` cancelled with this node. The handler of `upstream`, which holds this node, calls `unlinkUpstream()` first.
    void linkUpstream(PromiseNodeBase& upstream) noexcept { _upstream = &upstream; }
    void unlinkUpstream() noexcept { _upstream = nullptr; }

protected:
    PromiseNodeBase();
    ~PromiseNodeBase() override;

    /// Throws `fn::RuntimeException` if `upstream` waits for this node itself: neither would ever be settled.
    void refuseCycle(const PromiseNodeBase& upstream) const;

    enum class Outcome : unsigned char { None, Value, Failure };

    PromiseHandlerBase* settle() noexcept; ///< Returns the handler to call, or null if the outcome must be kept.
    void keep(Outcome outcome) noexcept { _kept = outcome; }
    void keepFailure(std::exception_ptr failure) noexcept;
    void takeKept(); ///< Throws the outcome that the node keeps if it is a failure.
    void clearCancellation();

    static std::exception_ptr lostFailure();

    /// Logs a kept failure that nobody has asked for. `place` is that of the coroutine that made the node, or null.
    void reportUnseen(const std::source_location* place) noexcept;

    /// Returns the node that this one waits for, which is cancelled next.
    virtual AutoPtr<PromiseNodeBase> cancelUpstream(Cancellation&) { return AutoPtr<PromiseNodeBase>(_upstream); }
    virtual bool runsNow() const noexcept { return false; }
    AutoPtr<PromiseNodeBase> upstream() const noexcept { return AutoPtr<PromiseNodeBase>(_upstream); }

    virtual void deliverValue(PromiseHandlerBase& handler) = 0;
    /// Called when the node is cancelled: a derived node overrides it instead of allocating a callable for `onCancel()`.
    virtual void wasCancelled() { }
    void reserveCancellation() noexcept { _cancellationSet = true; } ///< Forbids `onCancel()`.

private:
    class Delivery;
    friend Cancellation;
    friend RestOfCancellation;

    /// Returns the node that is to be cancelled next. The handler stays, and is told by the caller.
    AutoPtr<PromiseNodeBase> cancelThis(Cancellation& reached);
    void dropHandler();
    void deliver();

    bool _settled = false;
    bool _handlerInstalled = false;
    bool _cancellationSet = false;
    bool _cancelled = false;
    bool _isLost = false;
    Outcome _kept = Outcome::None; // The outcome of a node that was settled before it had a handler.
    PromiseHandlerBase* _handler = nullptr;
    std::exception_ptr _failure;
    folly::Function<void()> _cancellation;
    // A weak link without an allocation: the handler of the upstream node, which holds this node, clears the link when it ends.
    PromiseNodeBase* _upstream = nullptr;
    RestOfCancellation* _ending =
        nullptr; // Set while a cancelled node waits for a coroutine that is still on the stack.
};

template <typename T> class PromiseNode : public PromiseNodeBase {
public:
    void fulfill(PromiseValue<T> value)
    {
        if (settled()) return;
        const AutoPtr<PromiseNode> self(this); // The handler may run code that drops the last promise.
        if (auto* handler = settle()) {
            static_cast<PromiseHandler<T>*>(handler)->fulfilled(std::move(value));
        } else {
            _value.emplace(std::move(value));
            keep(Outcome::Value);
        }
        clearCancellation();
    }

    /// A rejected node, to be awaited instead of a node that was dropped.
    static AutoPtr<PromiseNode> lost()
    {
        auto node = makeAuto<PromiseNode>();
        node->reject(lostFailure());
        return node;
    }

    /// The outcome that the node keeps, once.
    PromiseValue<T> take()
    {
        takeKept();
        auto value = std::move(*_value);
        _value.reset();
        return value;
    }

    /// Settles this node as `promise` is settled. Cancelling this node cancels `promise`.
    void follow(const Promise<T>& promise);

protected:
    ~PromiseNode() override = default;

    template <typename... Arguments> void keepValue(Arguments&&... arguments)
    {
        _value.emplace(std::forward<Arguments>(arguments)...);
        keep(Outcome::Value);
    }

private:
    class Follower;

    void deliverValue(PromiseHandlerBase& handler) final
    {
        auto value = std::move(*_value);
        _value.reset();
        static_cast<PromiseHandler<T>&>(handler).fulfilled(std::move(value));
    }

    std::optional<PromiseValue<T>> _value;
};

template <typename T> class PromiseNode<T>::Follower final : public PromiseHandler<T> {
public:
    explicit Follower(PromiseNode& follower) : _follower(&follower) { }

private:
    void fulfilled(PromiseValue<T>&& value) override { end()->fulfill(std::move(value)); }
    void rejected(std::exception_ptr failure) override { end()->reject(std::move(failure)); }
    void dropped() override { end()->lose(); }

    AutoPtr<PromiseNode> end()
    {
        _follower->unlinkUpstream();
        auto follower = std::move(_follower);
        delete this;
        return follower;
    }

    AutoPtr<PromiseNode> _follower;
};

template <typename T> void PromiseNode<T>::follow(const Promise<T>& promise)
{
    auto& node = *PromiseAccess::node(promise);
    if (cancelled()) return node.cancel();
    refuseCycle(node);
    linkUpstream(node);
    node.await(*new Follower(*this));
}

} // namespace internal
} // namespace fn
