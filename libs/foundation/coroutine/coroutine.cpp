#include "foundation/coroutine/coroutine.h"
#include "base/exceptions.h"
#include "foundation/assertion.h"

namespace fn::internal {

Coroutine::Coroutine(PromiseNodeBase& node) noexcept : _node(node), _thread(pthread_self()) { }

void Coroutine::begin(std::coroutine_handle<> frame, const std::source_location& place) noexcept
{
    _frame = frame;
    _place = place;
}

void Coroutine::checkAwait(const PromiseNodeBase& node) const
{
    PromiseNodeBase::checkLoop();
    node.checkThread();
    if (&node == &_node) throw RuntimeException("A coroutine can not await its own end");
}

void Coroutine::checkIsOwnThread() const
{
    if (_thread != pthread_self()) throw RuntimeException("A coroutine is awaited on the thread that began it");
}

void Coroutine::await(PromiseNodeBase& node, PromiseHandlerBase& awaiter)
{
    if (mustEnd()) {
        node.cancel();
        destroyFrame();
        return;
    }
    if (std::exchange(_isOnStack, false)) exchangeContext();
    _node.linkUpstream(node);
    node.await(awaiter);
}

void Coroutine::resume()
{
    auto* next = this;
    while (auto* coroutine = std::exchange(next, nullptr)) {
        (void)FN_ASSERT(coroutine->_thread == pthread_self(), sites::coroutineHasOneThread);
        coroutine->_node.unlinkUpstream();
        coroutine->_isOnStack = true;
        coroutine->_resumed = &next;
        coroutine->exchangeContext();
        coroutine->_frame.resume();
    }
}

void Coroutine::goWithLoop()
{
    _node.unlinkUpstream();
    const auto node = destroyFrame();
    node->cancel(); // Tells who awaits it, after its frame has gone.
}

void Coroutine::finish()
{
    const auto node = destroyFrame();
    node->settleWithKept(_resumed); // Unless the promise was cancelled, be it by what the frame's end has run.
}

AutoPtr<PromiseNodeBase> Coroutine::destroyFrame()
{
    auto node = AutoPtr<PromiseNodeBase>::adopt(&_node); // Its own reference.
    if (!std::exchange(_isOnStack, true)) exchangeContext(); // From here on it can not be destroyed once more.
    _frame.destroy();
    _frame = nullptr;
    _isOnStack = false;
    exchangeContext();
    const auto rest = std::move(_rest); // Goes now: the frames of who awaits this one.
    return node;
}

void Coroutine::exchangeContext() noexcept { std::swap(WorkContext::_current, _context); }

void Coroutine::frameFreed() noexcept
{
    if (!_frame) _node.release();
}

AutoPtr<PromiseNodeBase> Coroutine::cancelAwaited(AutoPtr<PromiseNodeBase> awaited, Cancellation& cancellation)
{
    if (_isOnStack) {
        _rest = cancellation.rest();
        return {};
    }
    if (!_frame) return {};
    if (awaited) awaited->forgetHandler();
    _node.unlinkUpstream();
    cancellation.add(*this);
    return awaited;
}

void Cancellation::add(Coroutine& suspended) noexcept { suspended._outer = std::exchange(_innermost, &suspended); }

AutoPtr<RestOfCancellation> Cancellation::rest()
{
    if (!_rest) _rest = makeAuto<RestOfCancellation>();
    return _rest;
}

void Cancellation::end(CancellationEnd& whoWaits)
{
    if (_rest) {
        _rest->_innermost = _innermost;
        _rest->_whoWaits = &whoWaits;
    } else {
        destroyFrames(_innermost);
        whoWaits.cancellationEnded();
    }
}

void Cancellation::endFrom(PromiseNodeBase& first)
{
    if (_rest) {
        _rest->_innermost = _innermost;
        _rest->_first = AutoPtr<PromiseNodeBase>(&first);
        first._ending = _rest.get();
    } else {
        destroyFrames(_innermost);
        first.dropHandler();
    }
}

void Cancellation::destroyFrames(Coroutine* innermost)
{
    while (innermost) {
        auto* const coroutine = std::exchange(innermost, innermost->_outer);
        coroutine->destroyFrame();
    }
}

RestOfCancellation::~RestOfCancellation()
{
    Cancellation::destroyFrames(_innermost);
    if (_first) {
        _first->_ending = nullptr;
        _first->dropHandler();
    }
    if (_whoWaits) _whoWaits->cancellationEnded();
}

} // namespace fn::internal
