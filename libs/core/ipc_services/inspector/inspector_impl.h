#pragma once
#include "core/ipc_services/inspector/inspector.h"

namespace core {

/// A published inspector: the shared object that keeps an `Inspector` alive and calls it. It lives while the service or a
/// browser has a reference to it.
///
/// Method: "inspect" {"action", "refererAction"} gives a serialized `InspectionResult`.
class FN_EXPORT InspectorImpl final : public ipc::CallableObjectInstance {
public:
    InspectorImpl(ipc::Worker& worker, const fn::AutoPtr<Inspector>& inspector); ///< `inspector` is not null.

protected:
    ~InspectorImpl() override;
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override;
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override;

private:
    friend class Inspector; // Answers through this object.

    const fn::AutoPtr<Inspector> _inspector;
};

} // namespace core
