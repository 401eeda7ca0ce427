#include "core/ipc/message_bus.h"
#include "core/ipc/detail/message_bus_message.h"
#include "core/ipc/worker/worker.h"

namespace ipc {

MessageBus::MessageBus(ObjectReferenceInitializer& initializer) : CallableObjectReference(initializer) { }
MessageBus::~MessageBus() = default;

bool MessageBus::isInstalled() { return dynamic_cast<MessageBus*>(&fn::MessageBus::instance()); }

void MessageBus::sendMessage(const fn::String& name, fn::Value&& body, bool sticky)
{
    if (!hasWorker()) return;
    const auto payload = fn::Value::map({ { bus::WORKER_ID, worker().workerId() }, { bus::NAMESPACE, name },
        { bus::BODY, std::move(body) }, { bus::STICKY, sticky } });
    ObjectReference::sendMessage(fn::Value::map({ { bus::TYPE, bus::BUS_MESSAGE }, { bus::PAYLOAD, payload } }));
}

void MessageBus::onEvent(const fn::String& name, const fn::Value& argument)
{
    if (name != bus::EVENT) return;
    receiveMessage(
        argument.get(bus::NAMESPACE).asString(), argument.get(bus::BODY), argument.get(bus::STICKY).toBool());
}

fn::Promise<void> MessageBus::getStickyMessages()
{
    return callMethod(bus::GET_STICKY_MESSAGES).then([self = fn::AutoPtr(this)](fn::Value&& messages) {
        for (const auto& message : messages.elements())
            self->receiveMessage(message.get(bus::NAMESPACE).asString(), message.get(bus::BODY), true);
    });
}

} // namespace ipc
