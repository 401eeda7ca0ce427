#pragma once
#include "base/ref_counted.h"
#include "base/weak_ptr.h"
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc_services/inspector/inspection_result.h"

namespace core {

class InspectorImpl;

/// A browsable view of something in this process, for browsers in any process. A subclass overrides the first `inspect()`,
/// or, when it needs time, the second one. `InspectorRegistry::registerInspector()` publishes the inspector; it then lives at
/// least as long as the registration, and is called on the loop of the worker that has registered it.
///
/// An inspector that answers at once may be published several times; a late answer leaves by the publication asked last.
///
/// Overriding one `inspect()` hides the other: write `using Inspector::inspect;` beside it.
class FN_EXPORT Inspector : public fn::RefCountedObject {
public:
    /// Identifies the question that is to be answered later.
    using CallContext = ipc::CallableObjectInstance::CallContext;

    Inspector();

protected:
    ~Inspector() override;

public:
    /// Gives what to show for an action; nil asks for the first page. `refererAction` is the action whose page the browser has
    /// shown before, or nil. Any peer may have sent both. An exception reaches the browser as the call's failure. Default:
    /// an empty result.
    virtual InspectionResult inspect(const fn::Value& action, const fn::Value& refererAction);

    /// Answers with `sendResult()` on a copy of the context, now or later. A browser that gets no answer waits until it cancels
    /// or this worker dies. Default: answers at once with the other `inspect()`.
    virtual void inspect(const fn::Value& action, const fn::Value& refererAction, const CallContext& context);

protected:
    /// Answers one call; a result that cannot be sent (nested too deeply, too large) fails the call. Does nothing when the last
    /// reference to the published inspector has gone.
    void sendResult(const CallContext& context, const InspectionResult& result);

private:
    friend class InspectorImpl;

    fn::WeakPtr<InspectorImpl> _published; // Holds this object. Empty until it is registered.
};

} // namespace core
