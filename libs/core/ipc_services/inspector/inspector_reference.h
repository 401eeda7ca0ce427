#pragma once
#include "core/ipc/object/callable_object_reference.h"
#include "core/ipc/object/object_dead_exception.h"
#include "core/ipc_services/inspector/inspection_result.h"

namespace core {

/// What an inspector shows where no redirection is left.
struct OpenedPage {
    fn::Value action; ///< Of what is shown.
    std::vector<Item> items;
};

/// A published inspector as its browsers see it. Belongs to its worker's loop.
class FN_EXPORT InspectorReference final : public ipc::CallableObjectReference {
public:
    explicit InspectorReference(ipc::ObjectReferenceInitializer& initializer);

    /// What the inspector shows for an action (nil: its first page) on the way from another one. A redirection is not
    /// followed. Waits for as long as the inspector takes. Fails with what it throws, or `ipc::ObjectDeadException`; cancelling
    /// tells it nothing.
    fn::Promise<InspectionResult> inspect(const fn::Value& action, const fn::Value& refererAction);

    /// The same, and follows redirections; more than ten in a row are a `fn::RuntimeException`.
    fn::Promise<OpenedPage> open(const fn::Value& action, const fn::Value& refererAction);

    ~InspectorReference() override;

private:
    fn::Promise<OpenedPage> follow(const fn::Value& action, const fn::Value& refererAction, int redirectionsLeft);
};

} // namespace core
