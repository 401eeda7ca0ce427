#include "core/ipc/object/callable_object_reference.h"
#include "core/ipc/object/detail/call_message.h"
#include "core/ipc/object/detail/exception_record.h"
#include "core/ipc/object/detail/object_host.h"
#include "core/ipc/object/detail/pending_calls.h"
#include "core/ipc/wire/detail/message_fields.h"

namespace ipc {
namespace {

std::exception_ptr objectDead()
{
    return std::make_exception_ptr(ObjectDeadException(fn::Exception::StackTrace::Capture));
}

/// A peer may answer a reference that has never called.
PendingCalls::Ended take(PendingCalls* calls, std::uint32_t requestId)
{
    return calls ? calls->take(requestId) : PendingCalls::Ended();
}

/// Attaches the call's name to the exception, for the log.
std::exception_ptr named(std::exception_ptr failure, const ObjectReference& reference, const fn::String& method)
{
    if (!failure) return failure;
    try {
        std::rethrow_exception(failure);
    } catch (fn::Exception& exception) {
        exception.attach(fn::CallInfo { reference.className() + "." + method });
    } catch (...) {
    }
    return failure;
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
    if (!_pendingCalls) _pendingCalls = std::make_unique<PendingCalls>();
    const auto requestId = nextRequestId();
    const auto call = fn::makeAuto<PendingCall>(fn::AutoPtr(this), name, requestId);
    _pendingCalls->add(call);
    const fn::Promise<fn::Value> promise(call);
    try {
        const fn::mpack::Serializer::Field fields[] {
            { call::ARGUMENT, argument },
            { call::METHOD_NAME, name },
            { call::REQUEST_ID, requestId },
            { call::TYPE, call::CALL },
        };
        sendFields(fields);
    } catch (...) {
        const auto ended = _pendingCalls->take(requestId);
        promise.reject(named(std::current_exception(), *this, name));
        return promise;
    }
    return promise;
}

std::uint32_t CallableObjectReference::nextRequestId()
{
    if (_requestCounter == 0) _requestCounter = host().requestNumbers().last(objectId());
    do {
        ++_requestCounter;
    } while (_requestCounter == 0 || _requestCounter == NO_REQUEST_ID || _pendingCalls->contains(_requestCounter));
    return _requestCounter;
}

void CallableObjectReference::cancelCall(std::uint32_t requestId)
{
    if (!_pendingCalls->take(requestId)) return;
    if (hasWorker() && !dead()) host().requestNumbers().cancelled(objectId(), requestId);
    sendMessage(fn::Value::map({ { call::REQUEST_ID, requestId }, { call::TYPE, call::CANCEL } }));
}

void CallableObjectReference::onMessage(const fn::Value& message)
{
    const auto& messageType = message.get(call::TYPE);
    if (call::isText(messageType, call::CALL_RESPONSE))
        endCall(message, true);
    else if (call::isText(messageType, call::CALL_ERROR))
        endCall(message, false);
    else if (call::isText(messageType, call::EVENT))
        onEvent(message.at(call::EVENT_NAME).asString(), message.get(call::ARGUMENT));
}

void CallableObjectReference::endCall(const fn::Value& message, bool hasResult)
{
    const auto requestId = message.at(call::REQUEST_ID).to<std::uint32_t>();
    const auto& content = message.at(hasResult ? call::RESULT : call::ERROR);
    // The call is removed first: callbacks of its promise may call, cancel, or drop the last reference.
    const auto ended = take(_pendingCalls.get(), requestId);
    if (!ended) return; // Cancelled or answered already.
    if (hasResult) {
        ended.call->fulfill(content);
        return;
    }
    std::exception_ptr failure;
    try {
        failure = onError(content);
    } catch (...) {
        failure = std::current_exception(); // A record that cannot be rebuilt still ends the call.
    }
    ended.call->reject(named(std::move(failure), *this, ended.call->method()));
}

bool CallableObjectReference::failCall(const fn::Value& message, const std::exception_ptr& failure)
{
    const auto& messageType = message.get(call::TYPE);
    if (!call::isText(messageType, call::CALL_RESPONSE) && !call::isText(messageType, call::CALL_ERROR)) return false;
    const auto ended = take(_pendingCalls.get(), message.at(call::REQUEST_ID).to<std::uint32_t>());
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
    for (const auto& ended : _pendingCalls->takeAll()) ended.call->reject(objectDead());
}

} // namespace ipc
