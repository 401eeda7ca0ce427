#pragma once
#include "core/ipc/interface/interface.h"
#include "core/ipc/object/callable_object_reference.h"
#include <span>
#include <vector>

namespace ipc::internal {

/// How an event, or the change of a property, comes to an object of its interface.
struct EventEntry {
    std::string_view name;
    bool (*isHeard)(void* interface);
    void (*receive)(void* interface, PayloadReader& argument);
};

/// A reference to an object of an interface: the part that does not depend on the interface.
class FN_EXPORT TypedReference : public CallableObjectReference, protected Peer, private PayloadReceiver {
public:
    /// `interface` is told of the events in `events`, and belongs to the subclass.
    TypedReference(ObjectReferenceInitializer& initializer, std::span<const EventEntry> events, void* interface,
        fn::Duration timeLimit);

protected:
    ~TypedReference() override;
    void onEvent(const fn::String& name, const fn::Value& argument) override;

private:
    friend class RemoteBase;

    void peerCall(const fn::AutoPtr<PendingCall>& call, PayloadSource argument, fn::Duration limit) override;
    void peerListen() const override { }
    fn::RunLoop& peerLoop() const override { return loop(); }

    // Further objects of the same interface that hear the events.
    void addInterface(void* interface) { _interfaces.push_back(interface); }
    void removeInterface(void* interface) { std::erase(_interfaces, interface); }

    void onPayload(WorkerId source, const CallFields& fields) override;
    void dispatchEvent(std::string_view name, PayloadReader& argument);
    void dispatchToAll(const EventEntry& event, PayloadReader& argument);

    const std::span<const EventEntry> _events;
    const fn::Duration _timeLimit;
    std::vector<void*> _interfaces;
};

} // namespace ipc::internal
