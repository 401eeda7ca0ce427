#pragma once
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc_services/inspector/inspector_reference.h"
#include "foundation/handle.h"
#include <map>

namespace core {

/// The instance of the inspector service, the only one in the system: see `registerInspectorRegistry()`.
///
/// Methods: "registerInspector" {"name", "reference"} gives an id; "unregisterInspector" id; "allInspectors" gives a map of
/// names by key; "getInspector" key gives the reference, or nil. A worker registers its own inspectors alone, a bounded number
/// of them (core/ipc_services/inspector/limits.h), and its death ends their registrations. Any other call fails with an error.
class FN_EXPORT InspectorRegistryImpl final : public ipc::CallableObjectInstance {
public:
    explicit InspectorRegistryImpl(ipc::Worker& worker);

protected:
    ~InspectorRegistryImpl() override;
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override;
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override;

private:
    struct Registration {
        fn::String name;
        fn::String key;
        fn::AutoPtr<InspectorReference> reference;
        fn::Handle death;
    };

    fn::Value registerInspector(const CallContext& context, const fn::Value& argument);
    void checkRoom(ipc::WorkerId workerId, const fn::String& name) const;
    fn::String newKey(const fn::String& name) const;
    void removeRegistration(std::uint32_t id);
    fn::Value allInspectors() const;
    fn::Value getInspector(const fn::String& key) const;

    std::map<std::uint32_t, Registration> _registrations;
    std::map<fn::String, std::uint32_t> _keys;
    std::uint32_t _lastId = 0; // No id is given out twice.
    std::map<ipc::WorkerId, std::size_t> _counts; // How many registrations each worker has.
};

} // namespace core
