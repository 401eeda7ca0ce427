#include "foundation/coroutine/scope.h"
#include "foundation/assertion.h"
#include "foundation/detail/unseen_failures.h"
#include "foundation/run_loop.h"
#include <algorithm>

namespace fn {
namespace {

void settleAll(const std::vector<Promise<void>>& waiting, const std::exception_ptr& failure)
{
    for (const auto& promise : waiting) {
        if (failure)
            promise.reject(failure);
        else
            promise.fulfill();
    }
}

} // namespace

Scope::Scope() = default;

Scope::~Scope()
{
    if (!_hasEnded) {
        (void)FN_ASSERT(!isInside(), sites::scopeEndsFromOutside);
        endNow();
    }
    for (auto* beginning = _beginning; beginning; beginning = beginning->outer) beginning->scope = nullptr;
}

WorkContext Scope::contextOfWork() const
{
    const auto current = WorkContext::current();
    return _timeLimit ? current.within(*_timeLimit) : current;
}

void Scope::hold(Handle handle)
{
    if (_hasEnded) return;
    if (_handles.size() == _handles.capacity()) std::erase_if(_handles, [](const Handle& held) { return !held; });
    _handles.push_back(std::move(handle));
}

Promise<void> Scope::finished()
{
    if (!_newest)
        return _failure ? Promise<void>::rejected(std::exchange(_failure, nullptr)) : Promise<void>::fulfilled();
    return _waiting.emplace_back(Promise<void>::create());
}

void Scope::cancel()
{
    refuseInside();
    cancelWork();
    workEnded();
}

void Scope::end()
{
    if (_hasEnded) return;
    refuseInside();
    endNow();
}

void Scope::endNow()
{
    _hasEnded = true;
    _lifetime.end();
    while (!_handles.empty()) {
        const auto ended = std::move(_handles.back());
        _handles.pop_back();
    }
    cancelWork();
    auto* loop = RunLoop::currentLoop();
    if (_waiting.empty() || !loop) return;
    loop->post([waiting = std::exchange(_waiting, {}), failure = _failure] { settleAll(waiting, failure); });
}

void Scope::cancelWork()
{
    while (auto* work = _newest) {
        const AutoPtr<internal::PromiseNodeBase> node(&work->_node);
        node->forgetHandler();
        remove(*work);
        node->cancel();
    }
}

void Scope::refuseInside() const
{
    if (isInside()) throw RuntimeException("A scope can not end inside one of its own coroutines");
}

bool Scope::isInside() const noexcept
{
    if (_beginning) return true;
    for (const auto* work = _newest; work; work = work->_older) {
        if (work->_node.isRunning()) return true;
    }
    return false;
}

void Scope::add(WorkBase& work) noexcept
{
    work._older = std::exchange(_newest, &work);
    if (work._older) work._older->_newer = &work;
}

void Scope::remove(WorkBase& work) noexcept
{
    (work._newer ? work._newer->_older : _newest) = work._older;
    if (work._older) work._older->_newer = work._newer;
    delete &work;
}

void Scope::workFailed(std::exception_ptr failure, const std::source_location* place)
{
    const bool somebodyWaits =
        std::ranges::any_of(_waiting, [](const Promise<void>& promise) { return promise.isPending(); });
    if (!somebodyWaits) internal::reportUnseenFailure(failure, place);
    if (!_failure) _failure = std::move(failure);
}

void Scope::workEnded()
{
    if (_newest || _waiting.empty()) return;
    settleAll(std::exchange(_waiting, {}), std::exchange(_failure, nullptr)); // The scope may go meanwhile.
}

Scope::WorkBase::~WorkBase() = default;

void Scope::WorkBase::ended(std::exception_ptr failure)
{
    auto& scope = _scope;
    if (failure) scope.workFailed(std::move(failure), _node.place());
    scope.remove(*this);
    scope.workEnded();
}

void Scope::WorkBase::dropped()
{
    auto& scope = _scope;
    scope.remove(*this);
    if (auto* loop = RunLoop::currentLoop()) loop->post(scope._lifetime.guard([&scope] { scope.workEnded(); }));
}

} // namespace fn
