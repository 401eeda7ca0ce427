#include "core/ipc/interface/detail/call_fields.h"

namespace ipc {

CallFields::CallFields(PayloadReader& payload) : _payload(payload)
{
    if (!payload.nextIsMap()) return;
    for (auto left = payload.beginMap(); left > 0; --left) {
        const auto key = payload.nextIsText() ? payload.readText() : (payload.skip(), std::string_view());
        if (key == call::TYPE && payload.nextIsText()) {
            _type = payload.readText();
            continue;
        }
        if (auto* const place = placeOf(key)) *place = static_cast<std::uint32_t>(payload.offset());
        payload.skip();
    }
    payload.end();
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
    if (offset == 0)
        _payload.standAtNil();
    else
        _payload.setOffset(offset);
    return _payload;
}

std::uint32_t CallFields::requestId() const
{
    return _requestId == 0 ? NO_REQUEST_ID : at(_requestId).readInteger<std::uint32_t>();
}

fn::WorkContext CallFields::workContext() const
{
    fn::WorkContext context;
    if (_timeLeft != 0) context = context.within(fn::Duration(at(_timeLeft).readInteger<std::int64_t>()));
    if (_trace != 0) context = context.withTrace(at(_trace).readInteger<std::uint64_t>());
    return context;
}

std::string_view CallFields::text(std::uint32_t offset, std::string_view key) const
{
    if (offset == 0) throw fn::RangeException(fmt::format("A message of an object has no {}", key));
    return at(offset).readText();
}

} // namespace ipc
