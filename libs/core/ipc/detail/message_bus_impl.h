#pragma once
#include "core/ipc/object/callable_object_instance.h"
#include "foundation/value.h"
#include <map>

namespace ipc {

/// The relay of the message bus, the only one, in the dispatcher's own worker. Sends each posted message to every worker that
/// has a bus, and keeps the latest sticky body of each namespace for buses that start later. Refuses, with a log line, sticky
/// messages beyond its bounds (core/ipc/limits.h).
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
        std::size_t bytes; // The size of namespace and body, roughly as encoded.
    };

    bool keep(const fn::String& name, const fn::Value& body);

    std::map<fn::String, StickyMessage> _stickyMessages;
    std::size_t _stickyBytes = 0;
};

} // namespace ipc
