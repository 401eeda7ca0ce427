#pragma once
#include "base/ref_counted.h"
#include "base/weak_ptr.h"
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc_services/inspector/inspection_result.h"

namespace core {

class InspectorImpl;

/// A browsable view of something in this process, for browsers in any process. A subclass overrides the first `inspect()`,
/// or, when it needs time, the second one. `InspectorRegistry::registerInspector()` publishes it; from then on it lives at
/// least as long as the registration, and is asked on the loop of the worker that it was registered in.
///
/// It may be published several times if it answers at once. A later answer leaves by the publication that was asked last.
///
/// Overriding one of the two hides the other: say `using Inspector::inspect;` beside it.
class FN_EXPORT Inspector : public fn::RefCountedObject {
public:
    using CallContext = ipc::CallableObjectInstance::CallContext;

    Inspector();

protected:
    ~Inspector() override;

public:
    /// What to show for an action; nil asks for the first page. `refererAction` is the action whose result the browser comes
    /// from, nil if from nowhere. Both are what any peer sent. What it throws reaches the browser as the call's failure.
    /// Default: nothing.
    virtual InspectionResult inspect(const fn::Value& action, const fn::Value& refererAction);

    /// The same, answered with `sendResult()` on a copy of the context, now or later; a browser that gets no answer waits
    /// until it cancels or this worker dies. Default: answers at once with the other `inspect()`.
    virtual void inspect(const fn::Value& action, const fn::Value& refererAction, const CallContext& context);

protected:
    /// Answers one call; what cannot be sent (nested too deeply, too large) is the call's failure. Once nobody has the
    /// published inspector any more, it does nothing.
    void sendResult(const CallContext& context, const InspectionResult& result);

private:
    friend class InspectorImpl;

    fn::WeakPtr<InspectorImpl> _published; // Empty until registered. It holds this object.
};

} // namespace core
