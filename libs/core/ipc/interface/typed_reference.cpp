#include "core/ipc/interface/typed_reference.h"
#include "core/ipc/interface/property.h"
#include "core/ipc/object/detail/call_fields.h"
#include "core/ipc/object/detail/mismatch.h"
#include "core/ipc/object/detail/object_host.h"
#include "core/ipc/object/detail/pending_calls.h"
#include "foundation/unhandled_exception.h"
#include <algorithm>

namespace ipc::internal {

void Peer::peerCall(const fn::AutoPtr<PendingCall>& call, PayloadSource, fn::Duration)
{
    const auto text = fmt::format("{} is called through a reference, not in the service itself", call->method());
    call->reject(std::make_exception_ptr(fn::RuntimeException(text)));
}

void Peer::peerListen() const
{
    throw fn::RuntimeException(
        "Events are heard and properties watched through a reference, not in the service itself");
}

void Peer::peerFire(std::string_view event, PayloadSource)
{
    throw fn::RuntimeException(fmt::format("{} can be fired or set only by the service that has it", event));
}

void logUnlessGone(const std::exception_ptr& failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const fn::EndedException&) {
    } catch (...) {
        fn::unhandledException();
    }
}

void Member::throwUnbound() const
{
    throw fn::RuntimeException("An interface is no object by itself: ask a worker for a reference, or serve it");
}

TypedReference::TypedReference(ObjectReferenceInitializer& initializer, std::span<const EventEntry> events,
    void* interface, fn::Duration timeLimit)
    : CallableObjectReference(initializer),
      _events(events),
      _timeLimit(timeLimit),
      _interfaces { interface }
{
    setPayloadReceiver(*this);
}

TypedReference::~TypedReference() = default;

void TypedReference::peerCall(const fn::AutoPtr<PendingCall>& call, PayloadSource argument, fn::Duration limit)
{
    startCall(call, argument, limit > fn::Duration() ? limit : _timeLimit);
}

void TypedReference::onPayload(WorkerId, const CallFields& fields)
{
    if (fields.is(call::CALL_RESPONSE)) {
        const auto requestId = fields.requestId();
        endCall(requestId, fields.result());
    } else if (fields.is(call::CALL_ERROR)) {
        const auto requestId = fields.requestId();
        auto& reader = fields.error();
        const auto error = reader.readValue();
        reader.finish();
        failCall(requestId, error);
    } else if (fields.is(call::EVENT)) {
        const auto name = fields.eventName();
        dispatchEvent(name, fields.argument());
    }
}

/// The way of an event that an untyped service in this worker fires.
void TypedReference::onEvent(const fn::String& name, const fn::Value& argument)
{
    const auto encoded = host().encode([&](PayloadWriter& writer) { writer.serialize(argument); });
    PayloadReader reader(host(), encoded);
    dispatchEvent(name, reader);
}

void TypedReference::dispatchEvent(std::string_view name, PayloadReader& argument)
{
    const auto event = std::ranges::find(_events, name, &EventEntry::name);
    if (event == _events.end()) return;
    const auto start = argument.offset();
    try {
        const auto isHeard = [&](void* interface) { return event->isHeard(interface); };
        const auto first = std::ranges::find_if(_interfaces, isHeard);
        if (first == _interfaces.end()) return;
        if (std::any_of(first + 1, _interfaces.end(), isHeard)) return dispatchToAll(*event, argument);
        event->receive(*first, argument);
    } catch (const fn::mpack::MismatchException& mismatch) {
        throwMismatch(fmt::format("Event {}.{}", className(), name), argument.bytes(), start, mismatch);
    }
}

/// The bytes may be gone when the first one has been told.
void TypedReference::dispatchToAll(const EventEntry& event, PayloadReader& argument)
{
    const auto value = argument.readValue();
    argument.finish();
    for (auto* const interface : std::vector(_interfaces)) {
        if (std::ranges::find(_interfaces, interface) == _interfaces.end() || !event.isHeard(interface)) continue;
        const auto encoded = host().encode([&](PayloadWriter& writer) { writer.serialize(value); });
        PayloadReader reader(host(), encoded);
        event.receive(interface, reader);
    }
}

} // namespace ipc::internal
