#include "core/ipc/interface/service_base.h"
#include "core/ipc/interface/describe.h"
#include "core/ipc/interface/detail/call_fields.h"
#include "core/ipc/interface/detail/mismatch.h"
#include "core/ipc/object/detail/object_host.h"
#include "foundation/unhandled_exception.h"
#include <algorithm>

namespace ipc::internal {

ServedCall::~ServedCall() = default;

ServiceBase::ServiceBase(Worker& worker, const fn::String& className)
    : CallableObjectInstance(worker),
      _className(className)
{
    setPayloadReceiver(*this);
}

ServiceBase::~ServiceBase() = default;

void ServiceBase::deleteInstance()
{
    cancelServed();
    CallableObjectInstance::deleteInstance();
}

// --- What comes

void ServiceBase::onPayload(WorkerId source, PayloadReader& payload)
{
    const CallFields fields(payload);
    if (fields.is(call::CALL)) {
        const CallContext context { source, fields.requestId() };
        const auto name = fields.methodName();
        dispatch(context, name, fields.argument());
    } else if (fields.is(call::CANCEL)) {
        onMethodCallCancelled({ source, fields.requestId() });
    }
}

/// The way of a call by an untyped reference in this worker.
void ServiceBase::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    const auto encoded = host().encode([&](PayloadWriter& writer) { writer.serialize(argument); });
    PayloadReader reader(host(), encoded);
    dispatch(context, name, reader);
}

void ServiceBase::dispatch(const CallContext& context, std::string_view name, PayloadReader& argument)
{
    const auto all = methods();
    const auto method = std::ranges::find(all, name, &MethodEntry::name);
    const auto start = argument.offset();
    try {
        if (method == all.end()) {
            if (name != descriptionMethod)
                throw fn::RuntimeException(
                    fmt::format("{} has no method {}", _className, name), fn::Exception::StackTrace::None);
            argument.finish();
            const auto text = description();
            return answer(context, [&](PayloadWriter& writer) { writer.serialize(text); });
        }
        try {
            method->call(*this, context, argument);
        } catch (const fn::mpack::MismatchException& mismatch) {
            const auto bytes = argument.bytes();
            fn::mpack::Reader reader(bytes);
            reader.setOffset(start);
            throwMismatch(_className + "." + fn::String(method->name), bytes, start, mismatch, reader.nextIsArray());
        }
    } catch (...) {
        fail(context, std::current_exception());
    }
}

void ServiceBase::onMethodCallCancelled(const CallContext& context)
{
    if (const auto call = endServed(context)) call->cancel();
}

// --- What leaves

void ServiceBase::fire(std::string_view event, PayloadSource argument)
{
    sendPayload(NO_WORKER_ID, [&](PayloadWriter& writer) {
        writer.beginMap(3);
        writer.writeText(call::ARGUMENT);
        argument(writer);
        writer.writeText(call::EVENT_NAME);
        writer.writeText(event);
        writer.writeText(call::TYPE);
        writer.writeText(call::EVENT);
        writer.end();
    });
}

void ServiceBase::answer(const CallContext& context, PayloadSource result)
{
    if (!context.isAwaited()) return;
    sendPayload(context.workerId, [&](PayloadWriter& writer) {
        writer.beginMap(3);
        writer.writeText(call::REQUEST_ID);
        writer.writeInteger(context.requestId);
        writer.writeText(call::RESULT);
        result(writer);
        writer.writeText(call::TYPE);
        writer.writeText(call::CALL_RESPONSE);
        writer.end();
    });
}

void ServiceBase::fail(const CallContext& context, const std::exception_ptr& failure)
{
    if (context.isAwaited()) return sendError(context, failure);
    try {
        std::rethrow_exception(failure);
    } catch (...) {
        fn::unhandledException();
    }
}

// --- Calls that are answered later

void ServiceBase::serve(const CallContext& context, std::unique_ptr<ServedCall> call)
{
    _served.insert_or_assign(context, std::move(call));
}

std::unique_ptr<ServedCall> ServiceBase::endServed(const CallContext& context)
{
    auto served = _served.extract(context);
    return served ? std::move(served.mapped()) : nullptr;
}

/// Nobody waits for the answers any more.
void ServiceBase::cancelServed()
{
    while (!_served.empty()) _served.extract(_served.begin()).mapped()->cancel();
}

} // namespace ipc::internal
