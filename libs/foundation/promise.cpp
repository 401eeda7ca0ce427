#include "foundation/promise.h"
#include "base/exceptions.h"
#include "foundation/assertion.h"
#include "foundation/detail/unseen_failures.h"
#include "foundation/run_loop.h"
#include "foundation/unhandled_exception.h"
#include <unistd.h>

namespace fn::internal {
namespace {

[[gnu::cold, gnu::noinline]] void reportNoLoop()
{
    const bool isMainThread = gettid() == getpid();
    reportAssertion(isMainThread ? sites::promiseHasLoop : sites::promiseIsOnMainThread);
}

} // namespace

PromiseNodeBase::PromiseNodeBase() = default;

PromiseNodeBase::~PromiseNodeBase()
{
    if (_handler) _handler->dropped();
    if (_kept == Outcome::Failure) [[unlikely]]
        failureGoes();
}

void PromiseNodeBase::failureGoes() const noexcept
{
    // A failure for which there is a handler was on its way to the handler, and is dropped with the loop.
    if (!_handlerInstalled) reportUnseenFailure(_failure);
}

void PromiseNodeBase::checkLoop()
{
    if (!RunLoop::currentLoop()) [[unlikely]]
        reportNoLoop();
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
    if (!_settled) return;
    if (_kept == Outcome::None) {
        // The node was cancelled, or its outcome was consumed: the handler would never be called.
        if (auto* hopeless = std::exchange(_handler, nullptr)) hopeless->dropped();
        return;
    }
    auto* loop = RunLoop::currentLoop();
    (loop ? *loop : RunLoop::defaultLoop()).post([self = AutoPtr<PromiseNodeBase>(this)] { self->deliver(); });
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
        _failure = std::move(failure);
        _kept = Outcome::Failure;
    }
    clearCancellation();
}

void PromiseNodeBase::clearCancellation()
{
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
    AutoPtr<PromiseNodeBase> node(this);
    while (node && node->cancelThis()) node = AutoPtr<PromiseNodeBase>(node->_upstream);
}

bool PromiseNodeBase::cancelThis()
{
    if (_settled) return false;
    _settled = true;
    _cancelled = true;
    auto cancellation = std::exchange(_cancellation, nullptr);
    try {
        wasCancelled();
        if (cancellation) cancellation();
    } catch (...) {
        unhandledException();
    }
    if (auto* handler = std::exchange(_handler, nullptr)) handler->dropped();
    return true;
}

} // namespace fn::internal
