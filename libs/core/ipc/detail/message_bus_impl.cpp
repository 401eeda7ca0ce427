#include "core/ipc/detail/message_bus_impl.h"
#include "core/ipc/detail/message_bus_message.h"
#include "core/ipc/limits.h"
#include "core/ipc/message_bus.h"
#include "core/services/typed_byte_array.h"
#include "foundation/logging/logging.h"
#include "foundation/value_map.h"
#include <optional>

namespace ipc {
namespace {

/// Roughly the bytes that a value takes when it is encoded; empty if the value is nested too deeply to be kept.
std::optional<std::size_t> encodedSize(const fn::Value& value, int depth = 0)
{
    constexpr std::size_t perValue = 9; // Bytes of the largest header or number.
    if (depth > limits::stickyDepth) return std::nullopt;
    if (value.isString()) return perValue + value.string().size();
    if (value.isBoxed<fn::ByteArray>()) return perValue + value.byteArray().size();
    if (value.isBoxed<core::TypedByteArray>()) return 2 * perValue + value.boxed<core::TypedByteArray>().size();
    if (value.isObject()) {
        const auto reference = value.object<ObjectReference>();
        return 3 * perValue + (reference ? reference->className().size() : 0);
    }
    std::size_t sum = perValue;
    const auto add = [&](const fn::Value& part) {
        const auto size = encodedSize(part, depth + 1);
        sum += size.value_or(0);
        return size.has_value();
    };
    if (value.isArray()) {
        for (const auto& element : value.elements()) {
            if (!add(element)) return std::nullopt;
        }
    } else if (value.isMap()) {
        for (const auto& [key, entry] : value.entries()) {
            if (!add(key) || !add(entry)) return std::nullopt;
        }
    }
    return sum;
}

FN_LOG_CATEGORY("ipc.dispatcher");

} // namespace

MessageBusImpl::MessageBusImpl(Worker& worker) : CallableObjectInstance(worker) { }
MessageBusImpl::~MessageBusImpl() = default;

fn::AutoPtr<ObjectReference> MessageBusImpl::createReference(ObjectReferenceInitializer& initializer)
{
    return fn::AutoPtr<ObjectReference>(new MessageBus(initializer));
}

void MessageBusImpl::onMessage(WorkerId sourceWorkerId, const fn::Value& message)
{
    if (message.get(bus::TYPE).asString() != bus::BUS_MESSAGE) {
        CallableObjectInstance::onMessage(sourceWorkerId, message);
        return;
    }
    const auto& payload = message.get(bus::PAYLOAD);
    if (payload.get(bus::STICKY).toBool()) {
        const auto name = payload.get(bus::NAMESPACE).asString();
        if (!keep(name, payload.get(bus::BODY))) {
            FN_LOG(
                Warning, "Refusing the sticky message {} of worker {}: too much is kept already", name, sourceWorkerId);
            return;
        }
    }
    postEvent(NO_WORKER_ID, bus::EVENT, payload);
}

bool MessageBusImpl::keep(const fn::String& name, const fn::Value& body)
{
    const auto bodyBytes = encodedSize(body);
    if (!bodyBytes) return false;
    const auto bytes = name.size() + *bodyBytes;
    const auto known = _stickyMessages.find(name);
    const bool isKnown = known != _stickyMessages.end();
    const auto others = _stickyBytes - (isKnown ? known->second.bytes : 0);
    if (others + bytes > limits::stickyBytes) return false;
    if (!isKnown && _stickyMessages.size() >= limits::stickyNamespaces) return false;
    _stickyMessages.insert_or_assign(name, StickyMessage { body, bytes });
    _stickyBytes = others + bytes;
    return true;
}

void MessageBusImpl::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value&)
{
    if (name != bus::GET_STICKY_MESSAGES) return;
    fn::Value::Array messages;
    messages.reserve(_stickyMessages.size());
    for (const auto& [key, message] : _stickyMessages) {
        messages.push_back(fn::Value::map({ { bus::NAMESPACE, key }, { bus::BODY, message.body } }));
    }
    sendResult(context, std::move(messages));
}

} // namespace ipc
