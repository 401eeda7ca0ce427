#include "foundation/coroutine/join.h"

namespace fn::internal {

BranchBase::BranchBase(JoinBase& join, AutoPtr<PromiseNodeBase> node) : _join(join), _held(std::move(node))
{
    (join._last ? join._last->_next : join._first) = this;
    join._last = this;
    ++join._missing;
}

void BranchBase::begin()
{
    const auto node = std::move(_held);
    if (!node->hasOutcome()) return awaitNode(*node);
    try {
        takeOutcome(*node);
    } catch (...) {
        rejected(std::current_exception());
    }
}

void BranchBase::awaitNode(PromiseNodeBase& node)
{
    _awaited = &node; // Not held: it shows when its maker forgets it.
    await(node);
}

void BranchBase::fulfilled()
{
    _awaited = nullptr;
    _join.branchFulfilled();
}

void BranchBase::rejected(std::exception_ptr failure)
{
    _awaited = nullptr;
    _join.branchRejected(std::move(failure));
}

void BranchBase::dropped()
{
    _awaited = nullptr;
    if (PromiseNodeBase::loopIsEnding()) return _join.giveUp();
    awaitNode(*lost());
}

void JoinBase::begin()
{
    _node.retain();
    if (!_first && _until == Until::First)
        _failure = std::make_exception_ptr(RangeException("There is no promise to wait for"));
    if (!_first) return conclude();
    for (auto* branch = _first; branch && !_isConcluded; branch = branch->_next) branch->begin();
}

void JoinBase::branchFulfilled()
{
    if (--_missing == 0 || _until == Until::First) conclude();
}

void JoinBase::branchRejected(std::exception_ptr failure)
{
    _failure = std::move(failure);
    conclude();
}

void JoinBase::conclude()
{
    _isConcluded = true;
    _isWaiting = true;
    Cancellation cancellation;
    cancelAll(cancellation);
    cancellation.end(*this);
}

void JoinBase::cancellationEnded()
{
    _isWaiting = false;
    const auto node = AutoPtr<PromiseNodeBase>::adopt(&_node);
    const auto rest = std::move(_rest);
    if (node->settled()) return;
    if (_isGivenUp)
        node->cancel(); // Tells who awaits it.
    else if (_failure)
        node->reject(std::move(_failure));
    else
        succeed();
}

void JoinBase::cancelBranches(Cancellation& cancellation)
{
    if (_isWaiting) {
        _rest = cancellation.rest();
        return;
    }
    if (std::exchange(_isConcluded, true)) return;
    cancelAll(cancellation);
    _node.release(); // Who cancels holds it.
}

void JoinBase::giveUp()
{
    _isGivenUp = true;
    conclude();
}

void JoinBase::cancelAll(Cancellation& cancellation)
{
    for (auto* branch = _first; branch; branch = branch->_next) {
        auto node = std::move(branch->_held);
        if (auto* awaited = std::exchange(branch->_awaited, nullptr)) {
            awaited->forgetHandler();
            node = AutoPtr<PromiseNodeBase>(awaited);
        }
        if (node) node->cancel(cancellation);
    }
}

bool JoinBase::waitsForRunning() const noexcept
{
    if (_isWaiting) return true;
    for (const auto* branch = _first; branch; branch = branch->_next) {
        if (branch->_awaited && branch->_awaited->isRunning()) return true;
    }
    return false;
}

} // namespace fn::internal
