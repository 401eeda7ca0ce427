#include "core/ipc/object/detail/call_fields.h"
#include "core/ipc/limits.h"
#include "foundation/mpack/codes.h"
#include "foundation/value_map.h"
#include <algorithm>
#include <array>

namespace ipc {

namespace {

/// Texts as they are encoded, one behind the other.
template <const std::string_view&... texts>
constexpr auto encodedTexts = [] {
    static_assert(((texts.size() < 32) && ...)); // The form whose first byte has the length.
    std::array<char, (std::size_t(0) + ... + (1 + texts.size()))> bytes {};
    auto* at = bytes.data();
    const auto add = [&](std::string_view text) {
        *at++ = static_cast<char>(fn::mpack::code::FixStr | text.size());
        at = std::ranges::copy(text, at).out;
    };
    (add(texts), ...);
    return bytes;
}();

template <const std::string_view&... texts> void writeTexts(PayloadWriter& writer)
{
    writer.stream().writeFixed(encodedTexts<texts...>);
}

} // namespace

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
    switch (kind) {
    case Kind::Call: writeCall(writer, content); break;
    case Kind::Response:
        writer.beginMap(3);
        writeTexts<call::REQUEST_ID>(writer);
        writer.writeInteger(requestId);
        writeTexts<call::RESULT>(writer);
        content(writer);
        writeTexts<call::TYPE, call::CALL_RESPONSE>(writer);
        break;
    case Kind::Event:
        writer.beginMap(3);
        writeTexts<call::ARGUMENT>(writer);
        content(writer);
        writeTexts<call::EVENT_NAME>(writer);
        writer.writeText(name);
        writeTexts<call::TYPE, call::EVENT>(writer);
    }
    writer.end();
}

void CallHead::writeCall(PayloadWriter& writer, PayloadSource argument) const
{
    writer.beginMap(4u + (hasLimit() ? 1u : 0u) + (traceId != 0 ? 1u : 0u));
    writeTexts<call::ARGUMENT>(writer);
    argument(writer);
    writeTexts<call::METHOD_NAME>(writer);
    writer.writeText(name);
    writeTexts<call::REQUEST_ID>(writer);
    writer.writeInteger(requestId);
    if (hasLimit()) {
        writeTexts<call::TIME_LEFT>(writer);
        writer.writeInteger(timeLeft.totalMicroseconds());
    }
    if (traceId != 0) {
        writeTexts<call::TRACE>(writer);
        writer.writeInteger(traceId);
    }
    writeTexts<call::TYPE, call::CALL>(writer);
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
    if (left > 0 && payload.takeText(call::TYPE)) left -= passType();
    for (; left > 0; --left) {
        const auto key = payload.nextIsText() ? payload.readText() : (payload.skip(), std::string_view());
        if (key == call::TYPE)
            passType();
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

std::uint32_t CallFields::passType()
{
    if (_payload.nextIsText())
        _type = _payload.readText();
    else
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
