#pragma once
#include "core/inspector/inspection_result.h"
#include "core/ipc/object/callable_object_reference.h"
#include "core/ipc/object/object_dead_exception.h"

namespace core {

/// A published inspector as its browsers see it. Belongs to its worker's loop.
class FN_EXPORT InspectorReference final : public ipc::CallableObjectReference {
public:
    explicit InspectorReference(ipc::ObjectReferenceInitializer& initializer);

    /// What the inspector shows for an action (nil: its first page) on the way from another one. A redirection is not
    /// followed. Fails with what the inspector throws, or `ipc::ObjectDeadException`; cancelling tells the inspector nothing.
    fn::Promise<InspectionResult> inspect(const fn::Value& action, const fn::Value& refererAction);

    ~InspectorReference() override;
};

} // namespace core
