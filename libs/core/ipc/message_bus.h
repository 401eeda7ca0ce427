#pragma once
#include "core/ipc/object/callable_object_reference.h"
#include "foundation/message_bus.h"

namespace ipc {

/// The message bus of a process as a part of the bus that spans all processes: a message posted here goes to the relay in the
/// dispatcher, and what the relay sends is delivered to the listeners of this process, also those of the poster.
class FN_EXPORT MessageBus final : public fn::MessageBus, public CallableObjectReference {
public:
    explicit MessageBus(ObjectReferenceInitializer& initializer); ///< Made by the worker that has found the relay.

    using fn::MessageBus::onMessage;
    /// The same, for a literal: it could be text or a `fn::String`.
    MessageSignal& onMessage(const char* name) { return onMessage(fn::String(name)); }

    static bool isInstalled(); ///< Whether this process's bus spans all processes. Default loop's thread.

    /// Fetches the sticky bodies posted so far and delivers each one here. Fulfilled when all are delivered.
    /// Needs a running loop.
    fn::Promise<void> getStickyMessages();

    ~MessageBus() override;

protected:
    using CallableObjectReference::onMessage; // Handles messages of the relay. Listeners use the public one.
    void sendMessage(const fn::String& name, fn::Value&& body, bool sticky) override;
    void onEvent(const fn::String& name, const fn::Value& argument) override;
};

} // namespace ipc
