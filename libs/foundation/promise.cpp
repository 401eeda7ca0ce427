#include "foundation/promise.h"
#include "base/exceptions.h"
#include "foundation/assertion.h"
#include "foundation/coroutine/cancellation.h"
#include "foundation/detail/unseen_failures.h"
#include "foundation/run_loop.h"
#include "foundation/unhandled_exception.h"
#include "foundation/uv/detail/loop_private.h"
#include <unistd.h>

namespace fn::internal {
namespace {

[[gnu::cold, gnu::noinline]] void reportNoLoop()
{
    const bool isMainThread = gettid() == getpid();
    reportAssertion(isMainThread ? sites::promiseHasLoop : sites::promiseIsOnMainThread);
}

} // namespace

/// The task that gives a kept outcome to a handler that came later. If the task never runs, the handler is told so.
class PromiseNodeBase::Delivery {
public:
    explicit Delivery(PromiseNodeBase& node) : _node(&node) { }
    Delivery(Delivery&&) noexcept = default;
    Delivery& operator=(Delivery&&) = delete;
    ~Delivery()
    {
        if (_node) _node->dropHandler();
    }
    void operator()() { std::exchange(_node, nullptr)->deliver(); }

private:
    AutoPtr<PromiseNodeBase> _node;
};

Coroutine* PromiseHandlerBase::resumedBy(PromiseNodeBase&) noexcept { return nullptr; }

PromiseNodeBase::PromiseNodeBase() = default;

PromiseNodeBase::~PromiseNodeBase()
{
    if (_handler) _handler->dropped();
    if (_kept == Outcome::Failure) [[unlikely]]
        reportUnseen(nullptr);
}

void PromiseNodeBase::reportUnseen(const std::source_location* place) noexcept
{
    // A failure for which there is a handler was on its way to the handler, and is dropped with the loop.
    if (std::exchange(_kept, Outcome::None) == Outcome::Failure && !_handlerInstalled)
        reportUnseenFailure(_failure, place);
}

void PromiseNodeBase::ignore()
{
    (void)FN_ASSERT(!_handlerInstalled, sites::promiseHasOneHandler);
    _handlerInstalled = true;
}

void PromiseNodeBase::checkLoop()
{
    if (!RunLoop::currentLoop()) [[unlikely]]
        reportNoLoop();
}

void PromiseNodeBase::post(folly::Function<void()> task)
{
    auto* loop = RunLoop::currentLoop();
    (loop ? *loop : RunLoop::defaultLoop()).post(std::move(task));
}

bool PromiseNodeBase::loopIsEnding() noexcept { return endingLoops() > 0 && !RunLoop::currentLoop(); }

std::exception_ptr PromiseNodeBase::lostFailure()
{
    return std::make_exception_ptr(
        PromiseLostException("Who was to settle an awaited promise has forgotten or cancelled it"));
}

void PromiseNodeBase::refuseCycle(const PromiseNodeBase& upstream) const
{
    for (const auto* node = &upstream; node; node = node->_upstream) {
        if (node == this) throw RuntimeException("A promise cannot follow itself");
    }
}

void PromiseNodeBase::await(PromiseHandlerBase& handler)
{
    (void)FN_ASSERT(!_handlerInstalled, sites::promiseHasOneHandler);
    _handlerInstalled = true;
    if (auto* replaced = std::exchange(_handler, &handler)) replaced->dropped();
    if (!_settled && !_isLost) return;
    if (_kept == Outcome::None) {
        // The node was lost or cancelled, or its outcome was consumed: the handler would never be called.
        if (!_ending) dropHandler();
        return;
    }
    post(Delivery(*this));
}

void PromiseNodeBase::lose()
{
    _isLost = true;
    if (!_settled) dropHandler();
}

void PromiseNodeBase::dropHandler()
{
    if (auto* handler = std::exchange(_handler, nullptr)) handler->dropped();
}

void PromiseNodeBase::deliver()
{
    // After a second then() there are two tasks, for one outcome.
    auto* handler = std::exchange(_handler, nullptr);
    if (!handler) return;
    switch (std::exchange(_kept, Outcome::None)) {
    case Outcome::Value: return deliverValue(*handler);
    case Outcome::Failure: return handler->rejected(std::move(_failure));
    case Outcome::None: return handler->dropped();
    }
}

PromiseHandlerBase* PromiseNodeBase::settle() noexcept
{
    _settled = true;
    return std::exchange(_handler, nullptr);
}

void PromiseNodeBase::reject(std::exception_ptr failure)
{
    if (_settled) return;
    const AutoPtr<PromiseNodeBase> self(this);
    if (auto* handler = settle()) {
        handler->rejected(std::move(failure));
    } else {
        keepFailure(std::move(failure));
    }
    clearCancellation();
}

void PromiseNodeBase::keepFailure(std::exception_ptr failure) noexcept
{
    _failure = std::move(failure);
    _kept = Outcome::Failure;
}

void PromiseNodeBase::takeKept()
{
    _handlerInstalled = true;
    if (std::exchange(_kept, Outcome::None) == Outcome::Failure) std::rethrow_exception(std::move(_failure));
}

void PromiseNodeBase::settleWithKept(Coroutine** resumed)
{
    if (_settled) return keep(Outcome::None); // It was cancelled while it ran.
    _settled = true;
    if (_handler) {
        if (auto* coroutine = _handler->resumedBy(*this)) {
            _handler = nullptr;
            *resumed = coroutine;
        } else {
            deliver();
        }
    }
    clearCancellation();
}

void PromiseNodeBase::clearCancellation()
{
    if (!_cancellation) return; // As nearly always.
    // The member is empty before the callable is destroyed: its destructor may cancel or settle this promise again.
    const auto released = std::exchange(_cancellation, nullptr);
}

void PromiseNodeBase::onCancel(folly::Function<void()> callable)
{
    (void)FN_ASSERT(!_cancellationSet, sites::promiseHasOneCancellation);
    _cancellationSet = true;
    // Once the promise is settled, the callable would never run, nor be cleared.
    if (!_settled) std::swap(_cancellation, callable);
}

void PromiseNodeBase::cancel()
{
    if (_settled) return;
    const AutoPtr<PromiseNodeBase> self(this);
    Cancellation cancellation;
    cancel(cancellation);
    cancellation.endFrom(*this);
}

void PromiseNodeBase::cancel(Cancellation& cancellation)
{
    auto node = cancelThis(cancellation);
    while (node) {
        auto next = node->cancelThis(cancellation);
        node->dropHandler();
        node = std::move(next);
    }
}

AutoPtr<PromiseNodeBase> PromiseNodeBase::cancelThis(Cancellation& reached)
{
    if (_settled) {
        if (_ending) _ending->addWaiting(reached.rest());
        return {};
    }
    _settled = true;
    _cancelled = true;
    _kept = Outcome::None; // The outcome of a coroutine that is about to end.
    auto upstream = cancelUpstream(reached); // First: the code called below must not meet a coroutine that still runs.
    auto cancellation = std::exchange(_cancellation, nullptr);
    try {
        wasCancelled();
        if (cancellation) cancellation();
    } catch (...) {
        unhandledException();
    }
    return upstream;
}

bool PromiseNodeBase::isRunning() const noexcept
{
    for (const auto* node = this; node; node = node->_upstream) {
        if (node->_ending || node->runsNow()) return true;
    }
    return false;
}

} // namespace fn::internal
