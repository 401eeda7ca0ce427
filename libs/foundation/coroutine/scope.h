#pragma once
#include "base/lifetime.h"
#include "foundation/handle.h"
#include "foundation/promise.h"
#include "foundation/signal.h"
#include <vector>

namespace fn {

/// Owns what goes on: coroutines and other promises, connections and handles. Nothing of it runs after the scope's end.
///
/// As a member it is the last one of the object that the work uses, so that it ends before the others. Belongs to the thread of one
/// run loop.
class FN_EXPORT Scope {
public:
    Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

    /// `end()`. Inside one of its own coroutines a broken invariant is reported, and that one goes on to its next await.
    ~Scope();

    /// Takes over work that has begun. It is cancelled with the scope, at once where that has ended.
    ///
    /// Where it fails, whoever waits for `finished()` hears it. With nobody waiting the failure is logged like one of a promise that
    /// nobody asks, and the next `finished()` gives it.
    template <typename T> void start(Promise<T> work);

    /// Begins a coroutine: calls `work`, a lambda, which may capture, and keeps it until its promise has ended. Nothing where the
    /// scope has ended.
    template <typename F>
    void start(
        F work, const std::source_location& place = std::source_location::current()) requires std::is_invocable_v<F&>;

    /// Gives each coroutine that `start()` begins from now on a deadline (see WorkContext), `limit` after its start. It bounds the calls
    /// that they make, and cancels nothing itself.
    void setTimeLimit(Duration limit) noexcept { _timeLimit = limit; }

    void hold(Handle handle); ///< Ends with the scope: a timer, a connection.

    /// Connects until the scope ends; not at all where it has ended.
    template <typename... Arguments, typename Callback> void connect(Signal<Arguments...>& signal, Callback callback)
    {
        if (!_hasEnded) hold(signal.connect(std::move(callback)));
    }

    /// Wraps a callback: the call does nothing once the scope has ended.
    template <typename Callback> auto guard(Callback callback) const { return _lifetime.guard(std::move(callback)); }

    /// Fulfilled when nothing is under way that was started: rejected with the first failure since the last one given here. The work
    /// itself must not wait for it.
    Promise<void> finished();

    /// Cancels what was started, the newest first, and then tells who waits for `finished()`. More can be started afterwards.
    /// `fn::RuntimeException`, and nothing is done, inside one of the scope's own coroutines and of those that they await.
    void cancel();

    /// Ends connections and handles and does what `cancel()` does, for good; who waits for `finished()` is told by a task.
    void end();
    bool hasEnded() const noexcept { return _hasEnded; } ///< Whether `end()` was called: it takes nothing more.
    bool isEmpty() const noexcept { return !_newest && _handles.empty(); } ///< Whether there is nothing that would end.

    /// Whether one of the scope's own coroutines, or one that they await, runs now: the scope can not end here.
    bool isInside() const noexcept;

private:
    class WorkBase;
    template <typename T> class Work;

    /// While `start()` calls a lambda.
    struct Beginning {
        explicit Beginning(Scope& owner) : scope(&owner), outer(std::exchange(owner._beginning, this)) { }
        ~Beginning()
        {
            if (scope) scope->_beginning = outer;
        }
        Scope* scope; // Null once it has gone.
        Beginning* outer;
    };

    WorkContext contextOfWork() const;
    void add(WorkBase& work) noexcept;
    void remove(WorkBase& work) noexcept;
    void workFailed(std::exception_ptr failure, const std::source_location* place);
    void workEnded();
    void refuseInside() const;
    void cancelWork();
    void endNow();

    WorkBase* _newest = nullptr;
    Beginning* _beginning = nullptr;
    bool _hasEnded = false;
    std::optional<Duration> _timeLimit;
    std::exception_ptr _failure;
    std::vector<Handle> _handles;
    std::vector<Promise<void>> _waiting;
    Lifetime _lifetime;
};

/// Something under way, in the scope's list. It waits for a promise whose node it does not hold.
class FN_EXPORT Scope::WorkBase {
protected:
    /// Enters the scope's list.
    WorkBase(Scope& scope, internal::PromiseNodeBase& node) : _scope(scope), _node(node) { scope.add(*this); }
    virtual ~WorkBase();
    void ended(std::exception_ptr failure = nullptr); ///< Destroys this.
    void dropped(); ///< The same, while somebody is in the middle of something.

private:
    friend Scope;
    Scope& _scope;
    internal::PromiseNodeBase& _node;
    WorkBase* _older = nullptr;
    WorkBase* _newer = nullptr;
};

template <typename T> class Scope::Work final : public WorkBase, public internal::PromiseHandler<T> {
public:
    Work(Scope& scope, internal::PromiseNode<T>& node) : WorkBase(scope, node) { node.await(*this); }

private:
    void fulfilled(internal::PromiseValue<T>&&) override { ended(); }
    void rejected(std::exception_ptr failure) override { ended(std::move(failure)); }
    void dropped() override { WorkBase::dropped(); }
};

namespace internal {

/// The lambda lies in this coroutine's frame, which ends after the one of the lambda's own coroutine.
template <typename F> Promise<void> keepAndRun(F work) { static_cast<void>(co_await work()); }

} // namespace internal

template <typename T> void Scope::start(Promise<T> work)
{
    auto& node = *internal::PromiseAccess::node(work);
    if (_hasEnded) return node.cancel();
    if (!node.settled()) {
        new Work<T>(*this, node);
    } else if (node.hasOutcome()) {
        try {
            node.take();
        } catch (...) {
            workFailed(std::current_exception(), node.place());
        }
    }
}

template <typename F> void Scope::start(F work, const std::source_location& place) requires std::is_invocable_v<F&>
{
    if (_hasEnded) return;
    const Beginning beginning(*this);
    const ScopedContext context(contextOfWork());
    const auto begun = internal::keepAndRun(std::move(work));
    static_cast<internal::CoroutineNode<void>&>(*internal::PromiseAccess::node(begun)).setPlace(place);
    if (!beginning.scope) return begun.cancel();
    start(begun);
}

} // namespace fn
