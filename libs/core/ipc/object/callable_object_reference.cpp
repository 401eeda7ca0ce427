#include "core/ipc/object/callable_object_reference.h"
#include "core/ipc/object/detail/call_fields.h"
#include "core/ipc/object/detail/exception_record.h"
#include "core/ipc/object/detail/object_host.h"
#include "core/ipc/object/detail/pending_calls.h"
#include "core/ipc/object/tracing.h"
#include "core/ipc/wire/detail/message_fields.h"
#include "foundation/uv/loop.h"
#include "foundation/work_context.h"
#include <algorithm>

namespace ipc {
namespace {

/// Attaches the call's name to the exception, for the log.
std::exception_ptr named(std::exception_ptr failure, const ObjectReference& reference, std::string_view method)
{
    if (!failure) return failure;
    try {
        std::rethrow_exception(failure);
    } catch (fn::Exception& exception) {
        exception.attach(fn::CallInfo { reference.className() + "." + fn::String(method) });
    } catch (...) {
    }
    return failure;
}

std::exception_ptr objectDead()
{
    return std::make_exception_ptr(ObjectDeadException(fn::Exception::StackTrace::Capture));
}

/// That of a typed call, which says what it was.
std::exception_ptr objectDead(const ObjectReference& reference, std::string_view method)
{
    const auto text = fmt::format("{}.{}: the object's worker has gone", reference.className(), method);
    return named(std::make_exception_ptr(ObjectDeadException(text)), reference, method);
}

/// The shorter one of a limit, of which 0 stands for none, and the time that is left, which may be up.
fn::Duration shorter(fn::Duration limit, fn::Duration left)
{
    left = std::max(left, fn::Duration::microseconds(1));
    return limit > fn::Duration() ? std::min(limit, left) : left;
}

/// Keeps the name of a call's method.
struct MethodName {
    const fn::String methodName;
};

/// The promise of a call whose result is any value.
class ValueCall final : public fn::internal::PromiseNode<fn::Value>, private MethodName, public PendingCall {
public:
    explicit ValueCall(const fn::String& method)
        : MethodName { method },
          PendingCall(static_cast<PromiseNodeBase&>(*this), methodName.view())
    {
        reserveCancellation();
    }
    using PendingCall::release;
    using PendingCall::retain;

private:
    ~ValueCall() override = default;
    void wasCancelled() override { PendingCall::wasCancelled(); }
    void fulfillWith(PayloadReader& result) override
    {
        auto value = result.readValue();
        result.finish();
        if (result.failure()) std::rethrow_exception(result.failure());
        fulfill(std::move(value));
    }
    void fulfillWithValue(const fn::Value& result, ObjectHost&, const ObjectReference&) override { fulfill(result); }
};

/// Runs what fulfils a call that has ended. If it throws, the call is rejected.
template <typename Fulfill> void settle(const EndedCall& ended, Fulfill fulfill)
{
    try {
        fulfill();
    } catch (...) {
        ended.call->reject(named(std::current_exception(), *ended.reference, ended.call->method()));
    }
}

} // namespace

CallableObjectReference::CallableObjectReference(ObjectReferenceInitializer& initializer) : ObjectReference(initializer)
{
}

/// Pending calls hold the reference, so there are none here, unless a derived constructor has made them and thrown.
CallableObjectReference::~CallableObjectReference() { rejectPendingCalls(); }

fn::Promise<fn::Value> CallableObjectReference::callMethod(const fn::String& name, const fn::Value& argument)
{
    if (dead() || !hasWorker()) return fn::Promise<fn::Value>::rejected(objectDead());
    const auto call = fn::makeAuto<ValueCall>(name);
    addCall(call);
    const fn::Promise<fn::Value> promise(call);
    try {
        const fn::mpack::Serializer::Field fields[] {
            { call::ARGUMENT, argument },
            { call::METHOD_NAME, name },
            { call::REQUEST_ID, call->requestId() },
            { call::TYPE, call::CALL },
        };
        sendFields(fields);
    } catch (...) {
        const auto ended = _pendingCalls->take(call->requestId());
        promise.reject(named(std::current_exception(), *this, name));
        return promise;
    }
    return promise;
}

void CallableObjectReference::startCall(
    const fn::AutoPtr<PendingCall>& call, PayloadSource argument, fn::Duration limit)
{
    if (dead() || !hasWorker()) return call->reject(objectDead(*this, call->method()));
    if (fn::RunLoop::currentLoop() != &loop()) [[unlikely]]
        checkThread(*call);
    call->_isTyped = true;
    addCall(call);
    const auto requestId = call->requestId();
    const auto context = fn::WorkContext::current();
    if (limit == noTimeLimit) limit = {};
    if (const auto left = context.remainingTime()) limit = shorter(limit, *left);
    const bool hasLimit = limit > fn::Duration();
    const auto traceId = context.traceId() != 0 ? context.traceId() : newTraceId();
    try {
        const auto timeLeft = hasLimit ? limit : fn::Duration();
        sendCall({ CallHead::Kind::Call, requestId, call->method(), timeLeft, traceId }, argument);
        if (!hasLimit) return;
        call->_deadline = loop().schedule(limit, [this, requestId, limit] { onDeadline(requestId, limit); });
    } catch (...) {
        const auto ended = _pendingCalls->take(requestId);
        call->reject(named(std::current_exception(), *this, call->method()));
    }
}

void CallableObjectReference::checkThread(const PendingCall& call) const
{
    if (!loop().uvLoop().runsElsewhere()) return; // Nobody runs it yet, or runs another one inside of it.
    throw fn::RuntimeException(
        fmt::format("{}.{} is called on another thread than its worker's", className(), call.method()));
}

void CallableObjectReference::addCall(const fn::AutoPtr<PendingCall>& call)
{
    if (!_pendingCalls) _pendingCalls = std::make_unique<PendingCalls>();
    call->_requestId = nextRequestId();
    call->_reference = fn::AutoPtr(this);
    _pendingCalls->add(call);
}

std::uint32_t CallableObjectReference::nextRequestId()
{
    if (_requestCounter == 0) _requestCounter = host().requestNumbers().last(objectId());
    do {
        ++_requestCounter;
    } while (_requestCounter == 0 || _requestCounter == NO_REQUEST_ID || _pendingCalls->contains(_requestCounter));
    return _requestCounter;
}

/// A peer may answer a reference that has never called.
EndedCall CallableObjectReference::takeCall(std::uint32_t requestId)
{
    return _pendingCalls ? _pendingCalls->take(requestId) : EndedCall();
}

void CallableObjectReference::cancelCall(std::uint32_t requestId)
{
    if (_pendingCalls->take(requestId)) sendCancel(requestId);
}

void CallableObjectReference::sendCancel(std::uint32_t requestId)
{
    if (hasWorker() && !dead()) host().requestNumbers().cancelled(objectId(), requestId);
    sendMessage(fn::Value::map({ { call::REQUEST_ID, requestId }, { call::TYPE, call::CANCEL } }));
}

void CallableObjectReference::onDeadline(std::uint32_t requestId, fn::Duration limit)
{
    const auto ended = _pendingCalls->take(requestId);
    if (!ended) return;
    sendCancel(requestId);
    const auto text = fmt::format("{}.{} has not answered within {}", className(), ended.call->method(), limit);
    const fn::OperationTimedOutException failure(text, fn::Exception::StackTrace::None);
    ended.call->reject(named(std::make_exception_ptr(failure), *this, ended.call->method()));
}

void CallableObjectReference::onMessage(const fn::Value& message)
{
    const auto& messageType = message.get(call::TYPE);
    if (call::isText(messageType, call::CALL_RESPONSE)) {
        const auto requestId = message.at(call::REQUEST_ID).to<std::uint32_t>();
        const auto& result = message.at(call::RESULT);
        const auto ended = takeCall(requestId);
        if (ended) settle(ended, [&] { ended.call->fulfillWithValue(result, host(), *this); });
    } else if (call::isText(messageType, call::CALL_ERROR)) {
        failCall(message.at(call::REQUEST_ID).to<std::uint32_t>(), message.at(call::ERROR));
    } else if (call::isText(messageType, call::EVENT)) {
        onEvent(message.at(call::EVENT_NAME).asString(), message.get(call::ARGUMENT));
    }
}

void CallableObjectReference::endCall(std::uint32_t requestId, PayloadReader& result)
{
    // The call is removed first: callbacks of its promise may call, cancel, or drop the last reference.
    const auto ended = takeCall(requestId);
    if (ended) settle(ended, [&] { ended.call->fulfillFrom(result, *this); });
}

void CallableObjectReference::failCall(std::uint32_t requestId, const fn::Value& error)
{
    const auto ended = takeCall(requestId);
    if (!ended) return; // Cancelled or answered already.
    std::exception_ptr failure;
    try {
        failure = onError(error);
    } catch (...) {
        failure = std::current_exception(); // A record that cannot be rebuilt still ends the call.
    }
    ended.call->reject(named(std::move(failure), *this, ended.call->method()));
}

bool CallableObjectReference::failCall(const fn::Value& message, const std::exception_ptr& failure)
{
    const auto& messageType = message.get(call::TYPE);
    if (!call::isText(messageType, call::CALL_RESPONSE) && !call::isText(messageType, call::CALL_ERROR)) return false;
    const auto ended = takeCall(message.at(call::REQUEST_ID).to<std::uint32_t>());
    if (ended) ended.call->reject(named(failure, *this, ended.call->method()));
    return true;
}

std::exception_ptr CallableObjectReference::onError(const fn::Value& error)
{
    if (isExceptionRecord(error)) return exceptionFromRecord(error);
    return std::make_exception_ptr(fn::RuntimeException(error.toString()));
}

void CallableObjectReference::onEvent(const fn::String&, const fn::Value&) { }

void CallableObjectReference::onObjectDead() { rejectPendingCalls(); }

void CallableObjectReference::rejectPendingCalls()
{
    if (!_pendingCalls) return;
    for (const auto& ended : _pendingCalls->takeAll()) {
        auto& call = *ended.call;
        if (auto takeOver = std::exchange(call._onObjectDead, {}); takeOver && takeOver()) continue;
        call.reject(call._isTyped ? objectDead(*this, call.method()) : objectDead());
    }
}

} // namespace ipc
