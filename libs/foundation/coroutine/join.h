#pragma once
#include "foundation/promise.h"
#include <deque>
#include <tuple>
#include <variant>
#include <vector>

namespace fn {
namespace internal {

class BranchBase;

/// Waits for its branches: for all of them, or for the first one. Those that are not needed any more are cancelled, and have gone
/// before the outcome is told, since they may refer to what lies in the frame of who waits. It holds its node until then.
class FN_EXPORT JoinBase : private CancellationEnd {
public:
    enum class Until { All, First };

    JoinBase(const JoinBase&) = delete;
    JoinBase& operator=(const JoinBase&) = delete;

    void begin();

protected:
    JoinBase(PromiseNodeBase& node, Until until) noexcept : _node(node), _until(until) { }
    virtual ~JoinBase() = default;

    void cancelBranches(Cancellation& cancellation);
    bool waitsForRunning() const noexcept;

private:
    friend BranchBase;

    virtual void succeed() = 0; ///< Fulfils the node with what the branches have.

    void branchFulfilled();
    void branchRejected(std::exception_ptr failure);
    void conclude();
    void cancellationEnded() override;
    void giveUp();
    void cancelAll(Cancellation& cancellation);

    PromiseNodeBase& _node;
    BranchBase* _first = nullptr;
    BranchBase* _last = nullptr;
    std::size_t _missing = 0;
    std::exception_ptr _failure;
    AutoPtr<RestOfCancellation> _rest; // Cancelled while it waits for the branches' end: what waits for its own.
    const Until _until;
    bool _isConcluded = false;
    bool _isGivenUp = false; // The loop goes.
    bool _isWaiting = false; // Concluded; for the end of those that it has cancelled.
};

/// One of the promises of a join.
class FN_EXPORT BranchBase {
public:
    BranchBase(const BranchBase&) = delete;
    BranchBase& operator=(const BranchBase&) = delete;

protected:
    BranchBase(JoinBase& join, AutoPtr<PromiseNodeBase> node);
    virtual ~BranchBase() = default;

    void fulfilled();
    void rejected(std::exception_ptr failure);
    void dropped();

private:
    friend JoinBase;
    virtual void takeOutcome(PromiseNodeBase& node) = 0;
    virtual void await(PromiseNodeBase& node) = 0;
    virtual AutoPtr<PromiseNodeBase> lost() const = 0; ///< To be awaited in place of one that was dropped.

    void begin();
    void awaitNode(PromiseNodeBase& node);

    JoinBase& _join;
    AutoPtr<PromiseNodeBase> _held; // Until the join begins.
    PromiseNodeBase* _awaited = nullptr;
    BranchBase* _next = nullptr;
};

template <typename T> class Branch final : public PromiseHandler<T>, public BranchBase {
public:
    using Source = std::pair<JoinBase&, Promise<T>&&>; // One argument, as the members of a tuple are made from.
    explicit Branch(Source source) : BranchBase(source.first, PromiseAccess::node(std::move(source.second))) { }

    std::optional<PromiseValue<T>> value;

private:
    void fulfilled(PromiseValue<T>&& result) override
    {
        value.emplace(std::move(result));
        BranchBase::fulfilled();
    }
    void rejected(std::exception_ptr failure) override { BranchBase::rejected(std::move(failure)); }
    void dropped() override { BranchBase::dropped(); }
    void takeOutcome(PromiseNodeBase& node) override { fulfilled(static_cast<PromiseNode<T>&>(node).take()); }
    void await(PromiseNodeBase& node) override { node.await(*this); }
    AutoPtr<PromiseNodeBase> lost() const override { return PromiseNode<T>::lost(); }
};

/// The value of a branch without one is a std::monostate.
template <typename T> using Joined = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

template <typename T> Joined<T> takeJoined(Branch<T>& branch)
{
    if constexpr (std::is_void_v<T>)
        return {};
    else
        return std::move(*branch.value);
}

/// `Branches` has them and, from them, `result()`, of type `Result`.
template <typename Result, typename Branches> class JoinNode final : public PromiseNode<Result>, public JoinBase {
public:
    template <typename... Promises>
    explicit JoinNode(Until until, Promises&&... promises)
        : JoinBase(*this, until),
          _branches(static_cast<JoinBase&>(*this), std::forward<Promises>(promises)...)
    {
    }

    template <typename... Promises> static Promise<Result> of(Until until, Promises&&... promises)
    {
        auto node = makeAuto<JoinNode>(until, std::forward<Promises>(promises)...);
        node->begin();
        return Promise<Result>(std::move(node));
    }

private:
    AutoPtr<PromiseNodeBase> cancelUpstream(Cancellation& cancellation) override
    {
        cancelBranches(cancellation);
        return {};
    }
    bool runsNow() const noexcept override { return waitsForRunning(); }
    void succeed() override
    {
        if constexpr (std::is_void_v<Result>)
            this->fulfill(Void());
        else
            this->fulfill(_branches.result());
    }

    Branches _branches;
};

template <typename... T> class TupleBranches {
public:
    explicit TupleBranches(JoinBase& join, Promise<T>&&... promises)
        : branches(typename Branch<T>::Source(join, std::move(promises))...)
    {
    }

    std::tuple<Branch<T>...> branches;
};

template <typename T> class VectorBranches {
public:
    VectorBranches(JoinBase& join, std::vector<Promise<T>>&& promises)
    {
        for (auto& promise : promises) branches.emplace_back(typename Branch<T>::Source(join, std::move(promise)));
    }

    std::deque<Branch<T>> branches; // They do not move.
};

template <typename... T> class AllOfTuple : public TupleBranches<T...> {
public:
    using Result = std::conditional_t<(std::is_void_v<T> && ...), void, std::tuple<Joined<T>...>>;
    using TupleBranches<T...>::TupleBranches;

    std::tuple<Joined<T>...> result()
    {
        return std::apply(
            [](auto&... branch) { return std::tuple<Joined<T>...>(takeJoined(branch)...); }, this->branches);
    }
};

template <typename T> class AllOfVector : public VectorBranches<T> {
public:
    using Result = std::conditional_t<std::is_void_v<T>, void, std::vector<Joined<T>>>;
    using VectorBranches<T>::VectorBranches;

    std::vector<Joined<T>> result()
    {
        std::vector<Joined<T>> values;
        values.reserve(this->branches.size());
        for (auto& branch : this->branches) values.push_back(takeJoined(branch));
        return values;
    }
};

template <typename... T> class AnyOfTuple : public TupleBranches<T...> {
public:
    using Result = std::variant<Joined<T>...>;
    using TupleBranches<T...>::TupleBranches;

    Result result() { return find(std::index_sequence_for<T...>()); }

private:
    template <std::size_t... I> Result find(std::index_sequence<I...>)
    {
        std::optional<Result> found;
        (void)((std::get<I>(this->branches).value
                   && (found.emplace(std::in_place_index<I>, takeJoined(std::get<I>(this->branches))), true))
            || ...);
        return std::move(*found);
    }
};

template <typename T> class AnyOfVector : public VectorBranches<T> {
public:
    using Result = std::pair<std::size_t, Joined<T>>;
    using VectorBranches<T>::VectorBranches;

    Result result()
    {
        std::size_t index = 0;
        while (!this->branches[index].value) ++index;
        return { index, takeJoined(this->branches[index]) };
    }
};

template <typename Branches, typename... Promises> auto join(JoinBase::Until until, Promises&&... promises)
{
    return JoinNode<typename Branches::Result, Branches>::of(until, std::move(promises)...);
}

} // namespace internal

/// Fulfilled with the values of all when the last one is there: a std::tuple, or a std::vector; nothing where none has a value, a
/// std::monostate for one that has none among others. The first failure rejects it, once the others are cancelled and have gone.
/// Cancelling it cancels them all.
template <typename... T> auto all(Promise<T>... promises)
{
    return internal::join<internal::AllOfTuple<T...>>(internal::JoinBase::Until::All, std::move(promises)...);
}
template <typename T> auto all(std::vector<Promise<T>> promises)
{
    return internal::join<internal::AllOfVector<T>>(internal::JoinBase::Until::All, std::move(promises));
}

/// What the first one that is settled gives, be it a failure, once the others are cancelled and have gone: a std::variant whose
/// `index()` says which one it was, or of a std::vector the index and the value. Cancelling it cancels them all. Of none:
/// `fn::RangeException`.
template <typename... T> auto any(Promise<T>... promises)
{
    return internal::join<internal::AnyOfTuple<T...>>(internal::JoinBase::Until::First, std::move(promises)...);
}
template <typename T> auto any(std::vector<Promise<T>> promises)
{
    return internal::join<internal::AnyOfVector<T>>(internal::JoinBase::Until::First, std::move(promises));
}

} // namespace fn
