#include "core/ipc/object/detail/call_fields.h"
#include "core/ipc/limits.h"
#include "foundation/value_map.h"

namespace ipc {

std::string_view CallHead::type() const
{
    switch (kind) {
    case Kind::Call: return call::CALL;
    case Kind::Response: return call::CALL_RESPONSE;
    case Kind::Event: break;
    }
    return call::EVENT;
}

void CallHead::write(PayloadWriter& writer, PayloadSource content) const
{
    writer.beginMap((kind == Kind::Call ? 4u : 3u) + (hasLimit() ? 1u : 0u) + (traceId != 0 ? 1u : 0u));
    if (kind != Kind::Response) {
        writer.writeText(call::ARGUMENT);
        content(writer);
        if (kind == Kind::Event)
            writer.writeText(call::EVENT_NAME);
        else
            writer.writeText(call::METHOD_NAME);
        writer.writeText(name);
    }
    if (kind != Kind::Event) {
        writer.writeText(call::REQUEST_ID);
        writer.writeInteger(requestId);
    }
    if (kind == Kind::Response) {
        writer.writeText(call::RESULT);
        content(writer);
    }
    if (hasLimit()) {
        writer.writeText(call::TIME_LEFT);
        writer.writeInteger(timeLeft.totalMicroseconds());
    }
    if (traceId != 0) {
        writer.writeText(call::TRACE);
        writer.writeInteger(traceId);
    }
    writer.writeText(call::TYPE);
    writer.writeText(type());
    writer.end();
}

fn::Value CallHead::toMessage(fn::Value content) const
{
    auto message = fn::Value::map({ { call::TYPE, fn::String(type()) } });
    message.set(kind == Kind::Response ? call::RESULT : call::ARGUMENT, std::move(content));
    if (kind != Kind::Event) message.set(call::REQUEST_ID, requestId);
    if (hasLimit()) message.set(call::TIME_LEFT, timeLeft.totalMicroseconds());
    if (traceId != 0) message.set(call::TRACE, traceId);
    if (kind != Kind::Response)
        message.set(kind == Kind::Event ? call::EVENT_NAME : call::METHOD_NAME, fn::String(name));
    return message;
}

CallFields::CallFields(PayloadReader& payload) : _payload(payload)
{
    if (!payload.nextIsMap()) return;
    auto left = payload.beginMap();
    // The order in which they are written: each is the next entry, if it is there.
    if (left > 0 && payload.takeText(call::ARGUMENT)) left -= pass(_argument);
    if (left > 0 && payload.takeText(call::EVENT_NAME)) left -= pass(_eventName);
    if (left > 0 && payload.takeText(call::METHOD_NAME)) left -= pass(_methodName);
    if (left > 0 && payload.takeText(call::REQUEST_ID)) left -= pass(_requestId);
    if (left > 0 && payload.takeText(call::RESULT)) left -= pass(_result);
    for (; left > 0; --left) {
        const auto key = payload.nextIsText() ? payload.readText() : (payload.skip(), std::string_view());
        if (key == call::TYPE && payload.nextIsText())
            _type = payload.readText();
        else if (auto* const place = placeOf(key))
            pass(*place);
        else
            payload.skip();
    }
    payload.end();
    payload.setMaxValues(limits::payloadValues); // The values of the field that is read are counted as they are read.
}

std::uint32_t CallFields::pass(std::uint32_t& place)
{
    place = static_cast<std::uint32_t>(_payload.offset());
    _payload.skip();
    return 1;
}

std::uint32_t* CallFields::placeOf(std::string_view key)
{
    switch (key.size()) {
    case 5: return key == call::ERROR ? &_error : key == call::TRACE ? &_trace : nullptr;
    case 6: return key == call::RESULT ? &_result : nullptr;
    case 8: return key == call::ARGUMENT ? &_argument : nullptr;
    case 9: return key == call::TIME_LEFT ? &_timeLeft : nullptr;
    case 10: return key == call::REQUEST_ID ? &_requestId : key == call::EVENT_NAME ? &_eventName : nullptr;
    case 11: return key == call::METHOD_NAME ? &_methodName : nullptr;
    default: return nullptr;
    }
}

PayloadReader& CallFields::at(std::uint32_t offset) const
{
    if (_head) return _payload; // Stands there.
    if (offset == 0)
        _payload.standAtNil();
    else
        _payload.setOffset(offset);
    return _payload;
}

std::uint32_t CallFields::requestId() const
{
    if (_head) return _head->requestId;
    return _requestId == 0 ? NO_REQUEST_ID : at(_requestId).readInteger<std::uint32_t>();
}

fn::WorkContext CallFields::workContext() const
{
    fn::WorkContext context;
    if (_head) {
        if (_head->hasLimit()) context = context.within(_head->timeLeft);
        return context.withTrace(_head->traceId);
    }
    if (_timeLeft != 0) context = context.within(fn::Duration(at(_timeLeft).readInteger<std::int64_t>()));
    if (_trace != 0) context = context.withTrace(at(_trace).readInteger<std::uint64_t>());
    return context;
}

std::string_view CallFields::text(std::uint32_t offset, std::string_view key) const
{
    if (_head) return _head->name;
    if (offset == 0) throw fn::RangeException(fmt::format("A message of an object has no {}", key));
    return at(offset).readText();
}

} // namespace ipc
