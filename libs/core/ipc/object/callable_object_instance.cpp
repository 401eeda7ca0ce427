#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc/object/exception_record_private.h"

namespace ipc {
namespace {

std::uint32_t requestIdOf(const fn::Value& message)
{
    const auto* requestId = message.find(call::REQUEST_ID);
    return requestId ? requestId->to<std::uint32_t>() : call::NO_REQUEST_ID;
}

/// A caller without a request or worker id waits for nothing. Sent to the latter, an answer would reach everybody, and end
/// others' calls of the same number.
bool isAwaited(const CallableObjectInstance::CallContext& context)
{
    return context.requestId != call::NO_REQUEST_ID && context.workerId != NO_WORKER_ID;
}

} // namespace

CallableObjectInstance::CallableObjectInstance(Worker& worker) : ObjectInstance(worker) { }
CallableObjectInstance::~CallableObjectInstance() = default;

void CallableObjectInstance::onMessage(WorkerId sourceWorkerId, const fn::Value& message)
{
    const auto& messageType = message.get(call::TYPE);
    if (call::isText(messageType, call::CALL)) {
        const auto name = message.at(call::METHOD_NAME).asString();
        onMethodCall({ sourceWorkerId, requestIdOf(message) }, name, message.get(call::ARGUMENT));
    } else if (call::isText(messageType, call::CANCEL)) {
        onMethodCallCancelled({ sourceWorkerId, requestIdOf(message) });
    }
}

void CallableObjectInstance::onMethodCall(const CallContext&, const fn::String&, const fn::Value&) { }
void CallableObjectInstance::onMethodCallCancelled(const CallContext&) { }

void CallableObjectInstance::sendResult(const CallContext& context, const fn::Value& result)
{
    if (!isAwaited(context)) return;
    const fn::mpack::Serializer::Field fields[] {
        { call::REQUEST_ID, context.requestId },
        { call::RESULT, result },
        { call::TYPE, call::CALL_RESPONSE },
    };
    sendFields(context.workerId, fields);
}

void CallableObjectInstance::sendError(const CallContext& context, const fn::Value& error)
{
    if (!isAwaited(context)) return;
    const fn::mpack::Serializer::Field fields[] {
        { call::ERROR, error },
        { call::REQUEST_ID, context.requestId },
        { call::TYPE, call::CALL_ERROR },
    };
    sendFields(context.workerId, fields);
}

void CallableObjectInstance::sendError(const CallContext& context, const fn::Exception& exception)
{
    if (!isAwaited(context)) return; // Resolving a trace for nobody would be a waste.
    sendError(context, exceptionRecord(exception));
}

void CallableObjectInstance::sendError(const CallContext& context, std::exception_ptr exception)
{
    try {
        std::rethrow_exception(exception);
    } catch (const fn::Exception& e) {
        sendError(context, e);
    } catch (const std::exception& e) {
        sendError(context, fn::Value(e.what()));
    } catch (...) {
        sendError(context, fn::Value("Unknown Exception"));
    }
}

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
