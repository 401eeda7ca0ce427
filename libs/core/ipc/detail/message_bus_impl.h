#pragma once
#include "core/ipc/object/callable_object_instance.h"
#include "foundation/value.h"
#include <map>

namespace ipc {

/// The relay of the message bus, once in the dispatcher's own worker: sends every posted message to every worker that holds
/// the bus, and keeps the latest sticky body of each namespace for late starters. A sticky message beyond what it may hold
/// (core/ipc/limits.h) is refused with a log line.
class MessageBusImpl final : public CallableObjectInstance {
public:
    explicit MessageBusImpl(Worker& worker);

protected:
    ~MessageBusImpl() override;
    void onMessage(WorkerId sourceWorkerId, const fn::Value& message) override;
    fn::AutoPtr<ObjectReference> createReference(ObjectReferenceInitializer& initializer) override;
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override;

private:
    struct StickyMessage {
        fn::Value body;
        std::size_t bytes; // Of namespace and body, about as encoded.
    };

    bool keep(const fn::String& name, const fn::Value& body);

    std::map<fn::String, StickyMessage> _stickyMessages;
    std::size_t _stickyBytes = 0;
};

} // namespace ipc
