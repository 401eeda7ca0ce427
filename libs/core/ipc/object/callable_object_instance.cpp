#include "core/ipc/object/callable_object_instance.h"
#include "base/debug.h"
#include "core/ipc/object/detail/call_message.h"
#include "core/ipc/object/detail/exception_record.h"
#include "core/ipc/wire/detail/message_fields.h"
#include "foundation/unhandled_exception.h"

namespace ipc {
namespace {

std::uint32_t requestIdOf(const fn::Value& message)
{
    const auto* requestId = message.find(call::REQUEST_ID);
    return requestId ? requestId->to<std::uint32_t>() : NO_REQUEST_ID;
}

/// The ERROR that tells a caller of an exception.
fn::Value errorOf(const std::exception_ptr& exception)
{
    constexpr const char* unknown = "Unknown Exception";
    if (!exception) return unknown;
    try {
        std::rethrow_exception(exception);
    } catch (const fn::Exception& e) {
        return exceptionRecord(e);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return unknown;
    }
}

} // namespace

CallableObjectInstance::CallableObjectInstance(Worker& worker) : ObjectInstance(worker) { }
CallableObjectInstance::~CallableObjectInstance() = default;

void CallableObjectInstance::onMessage(WorkerId sourceWorkerId, const fn::Value& message)
{
    const auto& messageType = message.get(call::TYPE);
    if (call::isText(messageType, call::CALL))
        handleCall({ sourceWorkerId, requestIdOf(message) }, message);
    else if (call::isText(messageType, call::CANCEL))
        onMethodCallCancelled({ sourceWorkerId, requestIdOf(message) });
}

void CallableObjectInstance::handleCall(const CallContext& context, const fn::Value& message)
{
    CurrentCall current { context, _currentCall };
    _currentCall = &current;
    try {
        onMethodCall(context, message.at(call::METHOD_NAME).asString(), message.get(call::ARGUMENT));
        _currentCall = current.outer;
    } catch (...) {
        _currentCall = current.outer;
        if (context.isAwaited() && !current.isAnswered)
            sendError(context, std::current_exception());
        else
            fn::unhandledException();
    }
}

bool CallableObjectInstance::failCall(WorkerId source, const fn::Value& message, const std::exception_ptr& failure)
{
    if (!call::isText(message.get(call::TYPE), call::CALL)) return false;
    const CallContext context { source, requestIdOf(message) };
    if (!context.isAwaited()) return false;
    sendError(context, failure);
    return true;
}

void CallableObjectInstance::onMethodCall(const CallContext&, const fn::String&, const fn::Value&) { }
void CallableObjectInstance::onMethodCallCancelled(const CallContext&) { }

// --- Answers

void CallableObjectInstance::sendResult(const CallContext& context, const fn::Value& result)
{
    answer(context, true, result);
}

void CallableObjectInstance::sendError(const CallContext& context, const fn::Value& error)
{
    answer(context, false, error);
}

void CallableObjectInstance::sendError(const CallContext& context, const fn::Exception& exception)
{
    if (context.isAwaited())
        answer(context, false, exceptionRecord(exception)); // Resolves the stack trace, at some cost.
}

void CallableObjectInstance::sendError(const CallContext& context, const std::exception& exception)
{
    if (const auto* known = dynamic_cast<const fn::Exception*>(&exception))
        sendError(context, *known);
    else
        answer(context, false, exception.what());
}

void CallableObjectInstance::sendError(const CallContext& context, std::exception_ptr exception)
{
    if (context.isAwaited()) answer(context, false, errorOf(exception));
}

void CallableObjectInstance::sendUnknownMethod(const CallContext& context, const fn::String& name)
{
    const auto className = fn::debug::demangleTypeName(typeid(*this).name());
    sendError(context, fn::RuntimeException(className + " has no method " + name, fn::Exception::StackTrace::None));
}

void CallableObjectInstance::answer(const CallContext& context, bool isResult, const fn::Value& content)
{
    if (!context.isAwaited()) return;
    if (!isConstructed()) {
        afterConstruction([this, context, isResult, content] { answer(context, isResult, content); });
        return;
    }
    for (auto* current = _currentCall; current; current = current->outer) {
        if (current->context == context) current->isAnswered = true;
    }
    try {
        sendAnswer(context, isResult, content);
    } catch (...) {
        sendAnswer(context, false, errorOf(std::current_exception()));
    }
}

void CallableObjectInstance::sendAnswer(const CallContext& context, bool isResult, const fn::Value& content)
{
    const fn::Value requestId(context.requestId);
    if (isResult) {
        const fn::mpack::Serializer::Field fields[] {
            { call::REQUEST_ID, requestId },
            { call::RESULT, content },
            { call::TYPE, call::CALL_RESPONSE },
        };
        sendFields(context.workerId, fields);
    } else {
        const fn::mpack::Serializer::Field fields[] {
            { call::ERROR, content },
            { call::REQUEST_ID, requestId },
            { call::TYPE, call::CALL_ERROR },
        };
        sendFields(context.workerId, fields);
    }
}

// --- Events

void CallableObjectInstance::postEvent(WorkerId workerId, const fn::String& name, const fn::Value& argument)
{
    const fn::mpack::Serializer::Field fields[] {
        { call::ARGUMENT, argument },
        { call::EVENT_NAME, name },
        { call::TYPE, call::EVENT },
    };
    sendFields(workerId, fields);
}

void CallableObjectInstance::broadcastEvent(const fn::String& name, const fn::Value& argument)
{
    postEvent(NO_WORKER_ID, name, argument);
}

} // namespace ipc
