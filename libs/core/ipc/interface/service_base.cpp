#include "core/ipc/interface/service_base.h"
#include "core/ipc/interface/describe.h"
#include "core/ipc/object/detail/call_fields.h"
#include "core/ipc/object/detail/mismatch.h"
#include "core/ipc/object/detail/object_host.h"
#include "foundation/unhandled_exception.h"
#include <algorithm>

namespace ipc::internal {

ServedCall::~ServedCall() = default;

/// A call that is on the stack; it may run the loop, which may bring the next one, or its own cancellation.
class ServiceBase::Serving {
public:
    Serving(ServiceBase& service, const CallContext& context)
        : context(context),
          outer(std::exchange(service._serving, this)),
          _service(service)
    {
    }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;
    ~Serving() { _service._serving = outer; }

    const CallContext context;
    Serving* const outer;
    bool isCancelled = false;

private:
    ServiceBase& _service;
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
    loop().postDeletion([this] { end(); });
}

void ServiceBase::end()
{
    _deaths.invalidate();
    while (!_served.empty()) cancelFrom(_served.begin());
    try {
        _scope.end();
    } catch (const fn::RuntimeException&) { // One of its coroutines runs the loop: when that is over.
        return loop().schedule(fn::Duration::milliseconds(1), [this] { end(); }).detach();
    }
    CallableObjectInstance::deleteInstance();
}

// --- What comes

void ServiceBase::onPayload(WorkerId source, const CallFields& fields)
{
    if (fields.is(call::CALL)) {
        const CallContext context { source, fields.requestId() };
        std::string_view name;
        fn::WorkContext work;
        try {
            name = fields.methodName();
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
            if (argument.isFinished()) throw; // Of what the service itself reads.
            const auto what = _className + "." + fn::String(method->name);
            throwMismatch(what, argument.bytes(), start, mismatch, method->arguments > 1);
        }
    } catch (...) {
        fail(context, std::current_exception());
    }
}

void ServiceBase::onMethodCallCancelled(const CallContext& context)
{
    if (!context.isAwaited()) return;
    if (auto* const serving = servingOf(context)) serving->isCancelled = true;
    if (const auto place = _served.find(context); place != _served.end()) cancelFrom(place);
}

ServiceBase::Serving* ServiceBase::servingOf(const CallContext& context) const
{
    auto* serving = _serving;
    while (serving && serving->context != context) serving = serving->outer;
    return serving;
}

CallableObjectInstance::CallContext ServiceBase::callContext() const
{
    return _serving ? _serving->context : CallContext();
}

bool ServiceBase::isWaiting(const CallContext& context) const
{
    const auto* serving = servingOf(context);
    return serving ? !serving->isCancelled : _served.contains(context);
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

bool ServiceBase::serve(const CallContext& context, std::unique_ptr<ServedCall> call)
{
    listenForDeaths();
    if (context.isAwaited()) {
        // A caller that uses a number again does not wait for the first answer.
        if (const auto place = _served.find(context); place != _served.end()) cancelFrom(place);
        if (const auto* serving = servingOf(context); serving && serving->isCancelled) {
            call->cancel();
            return false;
        }
    }
    auto& served = *call;
    served._place = _served.emplace(context, std::move(call));
    served._isServed = true;
    return true;
}

std::unique_ptr<ServedCall> ServiceBase::endServed(ServedCall& call)
{
    if (!std::exchange(call._isServed, false)) return nullptr;
    return std::move(_served.extract(call._place).mapped());
}

/// Cancels one call. That may end others.
void ServiceBase::cancelFrom(ServedCall::Table::iterator place)
{
    const auto call = endServed(*place->second);
    call->cancel();
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
    // The table is in the order of the workers.
    const auto own = host().workerId();
    const auto next = [&] {
        const auto place = _served.lower_bound({ workerId == NO_WORKER_ID ? WorkerId(0) : workerId, 0 });
        if (workerId != NO_WORKER_ID || place == _served.end() || place->first.workerId != own) return place;
        return _served.upper_bound({ own, UINT32_MAX });
    };
    for (auto place = next(); place != _served.end(); place = next()) {
        if (workerId != NO_WORKER_ID && place->first.workerId != workerId) break;
        cancelFrom(place);
    }
    _onCallerGone.fire(workerId);
}

} // namespace ipc::internal
