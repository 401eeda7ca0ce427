#include "core/ipc/interface/remote_base.h"
#include "core/ipc/object/detail/object_host.h"
#include "core/ipc/object/object_dead_exception.h"
#include "core/ipc/object/pending_call.h"
#include <algorithm>

namespace ipc::internal {
namespace {

// How long the registry is asked to wait; then it is asked again. It keeps the look-ups of those that have gone for so long.
constexpr auto searchTime = fn::Duration::seconds(30);

} // namespace

RemoteBase::RemoteBase(
    Worker& worker, void* interface, const fn::String& className, fn::Duration timeLimit, fn::Duration patience)
    : _worker(worker),
      _interface(interface),
      _className(className),
      _timeLimit(timeLimit),
      _patience(patience)
{
}

RemoteBase::~RemoteBase()
{
    _lifetime.end();
    if (_search) _search.cancel();
    if (_reference) _reference->removeInterface(_interface);
    for (const auto& waiting : std::exchange(_waiting, {})) {
        waiting.call->reject(std::make_exception_ptr(
            ObjectDeadException(fmt::format("{}.{}: who called has ended", _className, waiting.call->method()))));
    }
}

// --- Calls

void RemoteBase::peerCall(const fn::AutoPtr<PendingCall>& call, PayloadSource argument, fn::Duration limit)
{
    if (limit <= fn::Duration()) limit = _timeLimit;
    if (isThere() && !call->isRepeatable()) return _reference->peerCall(call, argument, limit);
    Request request { {}, fn::WorkContext::current() };
    if (limit > fn::Duration() && limit != noTimeLimit) request.context = request.context.within(limit);
    try {
        request.argument = _worker.objectHost().encode(argument);
    } catch (...) {
        return call->reject(std::current_exception());
    }
    if (isThere())
        send(call, std::move(request));
    else
        wait(call, std::move(request));
}

void RemoteBase::wait(const fn::AutoPtr<PendingCall>& call, Request request)
{
    const auto patience = request.context.remainingTime().value_or(_patience);
    auto timer = _worker.loop().schedule(patience, [this, call, patience] { onTimeout(call, patience); });
    _waiting.push_back({ call, std::move(request), std::move(timer) });
    look();
}

/// Sends a call to the object that is there. If that goes before it has answered, a repeatable call waits for the next one.
void RemoteBase::send(const fn::AutoPtr<PendingCall>& call, Request request)
{
    const fn::ScopedContext work(request.context);
    const auto reference = _reference;
    const auto watch = _lifetime.watch();
    reference->peerCall(
        call, [&](PayloadWriter& writer) { writer.embed(request.argument); }, noTimeLimit);
    if (!watch || !call->isRepeatable() || call->isSettled()) return; // Rejecting the call may have ended this.
    auto* const again = call.get(); // The call keeps the callback, and not the other way round.
    call->onObjectDead([this, watch, again, request = std::move(request)]() mutable {
        if (watch) wait(fn::AutoPtr(again), std::move(request));
        return static_cast<bool>(watch);
    });
}

void RemoteBase::onTimeout(const fn::AutoPtr<PendingCall>& call, fn::Duration patience)
{
    const auto place = std::ranges::find(_waiting, call, &Waiting::call);
    if (place == _waiting.end()) return;
    const auto waiting = std::move(*place);
    _waiting.erase(place);
    const auto text = fmt::format(
        "{}.{}: no object of class {} was there within {}", _className, call->method(), _className, patience);
    call->reject(std::make_exception_ptr(fn::OperationTimedOutException(text, fn::Exception::StackTrace::None)));
}

// --- The object

void RemoteBase::look()
{
    if (_search || isThere()) return;
    _search = find(searchTime);
    _search.then([this](fn::AutoPtr<TypedReference>&& found) { onFound(std::move(found)); },
        [this](const std::exception_ptr& failure) { onNotFound(failure); });
}

void RemoteBase::onFound(fn::AutoPtr<TypedReference> found)
{
    const auto watch = _lifetime.watch();
    _search = {};
    if (_reference) _reference->removeInterface(_interface);
    _reference = std::move(found);
    _reference->addInterface(_interface);
    _death = _reference->objectDeadSignal().connect([this] { onDeath(); });
    if (!isThere()) return;
    refreshProperties();
    while (watch && !_waiting.empty()) { // Where this ends meanwhile, its destructor rejects the rest.
        auto waiting = std::move(_waiting.front());
        _waiting.pop_front();
        if (!waiting.call->isSettled()) send(waiting.call, std::move(waiting.request));
    }
    if (watch) _onCame.fire();
}

void RemoteBase::onNotFound(const std::exception_ptr& failure)
{
    _search = {};
    try {
        std::rethrow_exception(failure);
    } catch (const fn::OperationTimedOutException&) {
        look();
    } catch (...) { // There is no registry any more to ask.
        for (const auto& waiting : std::exchange(_waiting, {})) waiting.call->reject(failure);
    }
}

void RemoteBase::onDeath()
{
    const auto watch = _lifetime.watch();
    look();
    if (watch) _onGone.fire();
}

} // namespace ipc::internal
