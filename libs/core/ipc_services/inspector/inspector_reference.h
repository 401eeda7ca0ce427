#pragma once
#include "core/ipc/object/callable_object_reference.h"
#include "core/ipc/object/object_dead_exception.h"
#include "core/ipc_services/inspector/inspection_result.h"

namespace core {

/// A page of an inspector, behind all redirections.
struct OpenedPage {
    fn::Value action; ///< The action whose page this is.
    std::vector<Item> items; ///< The lines of the page.
};

/// A published inspector as its browsers see it. Belongs to its worker's loop.
class FN_EXPORT InspectorReference final : public ipc::CallableObjectReference {
public:
    /// Made by the worker that an inspector arrives at.
    explicit InspectorReference(ipc::ObjectReferenceInitializer& initializer);

    /// Asks the inspector for the page of an action (nil: its first one) on the way from `refererAction`, and follows no
    /// redirection. There is no time-out. Fails with what the inspector throws, or with `ipc::ObjectDeadException`. The
    /// inspector does not learn that the promise was cancelled.
    fn::Promise<InspectionResult> inspect(const fn::Value& action, const fn::Value& refererAction);

    /// Asks likewise and follows redirections; more than ten in a row fail with a `fn::RuntimeException`.
    fn::Promise<OpenedPage> open(fn::Value action, fn::Value refererAction);

    ~InspectorReference() override;
};

} // namespace core
