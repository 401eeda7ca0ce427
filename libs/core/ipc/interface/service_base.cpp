#include "core/ipc/interface/service_base.h"
#include "core/ipc/interface/describe.h"
#include "core/ipc/object/detail/call_fields.h"
#include "core/ipc/object/detail/mismatch.h"
#include "core/ipc/object/detail/object_host.h"
#include "foundation/unhandled_exception.h"
#include <algorithm>

namespace ipc::internal {

ServedCall::~ServedCall() = default;

/// A call that is on the stack; it may run the loop, which may bring the next one.
class ServiceBase::Serving {
public:
    Serving(ServiceBase& service, const CallContext& context)
        : _service(service),
          _outer(std::exchange(service._context, context))
    {
    }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;
    ~Serving() { _service._context = _outer; }

private:
    ServiceBase& _service;
    const CallContext _outer;
};

ServiceBase::ServiceBase(Worker& worker, const fn::String& className)
    : CallableObjectInstance(worker),
      _className(className)
{
    setPayloadReceiver(*this);
}

ServiceBase::~ServiceBase() = default;

/// In a task, since one of the service's own coroutines may have held it last.
void ServiceBase::deleteInstance()
{
    loop().postDeletion([this] {
        _deaths.invalidate();
        cancelServed([](const CallContext&) { return true; });
        _scope.end();
        CallableObjectInstance::deleteInstance();
    });
}

// --- What comes

void ServiceBase::onPayload(WorkerId source, const CallFields& fields)
{
    if (fields.is(call::CALL)) {
        const CallContext context { source, fields.requestId() };
        const auto name = fields.methodName();
        fn::WorkContext work;
        try {
            work = fields.workContext();
        } catch (...) {
            return fail(context, std::current_exception());
        }
        const fn::ScopedContext serving(work);
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
    const Serving serving(*this, context);
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

void ServiceBase::peerFire(std::string_view event, PayloadSource argument)
{
    sendCall(NO_WORKER_ID, { .kind = CallHead::Kind::Event, .name = event }, argument);
}

void ServiceBase::answer(const CallContext& context, PayloadSource result)
{
    if (!context.isAwaited()) return;
    sendCall(context.workerId, { .kind = CallHead::Kind::Response, .requestId = context.requestId }, result);
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
    listenForDeaths();
    onMethodCallCancelled(context); // A caller that uses a number again does not wait for the first answer.
    _served.insert_or_assign(context, std::move(call));
}

std::unique_ptr<ServedCall> ServiceBase::endServed(const CallContext& context)
{
    auto served = _served.extract(context);
    return served ? std::move(served.mapped()) : nullptr;
}

/// Cancels the calls that nobody waits for any more. Each may end others.
template <typename Concerned> void ServiceBase::cancelServed(Concerned concerned)
{
    for (;;) {
        const auto place = std::ranges::find_if(_served, [&](const auto& entry) { return concerned(entry.first); });
        if (place == _served.end()) return;
        const auto call = std::move(_served.extract(place).mapped());
        call->cancel();
    }
}

fn::Signal<WorkerId>& ServiceBase::onCallerGone()
{
    listenForDeaths();
    return _onCallerGone;
}

void ServiceBase::listenForDeaths()
{
    if (!_deaths) _deaths = host().onWorkerDied().connect([this](WorkerId workerId) { onWorkerDied(workerId); });
}

void ServiceBase::onWorkerDied(WorkerId workerId)
{
    const fn::AutoPtr self(this);
    cancelServed([&](const CallContext& call) {
        return workerId == NO_WORKER_ID ? call.workerId != host().workerId() : call.workerId == workerId;
    });
    _onCallerGone.fire(workerId);
}

} // namespace ipc::internal
