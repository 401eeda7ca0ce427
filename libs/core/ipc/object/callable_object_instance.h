#pragma once
#include "core/ipc/object/call_message.h"
#include "core/ipc/object/object_instance.h"
#include "foundation/exception.h"

namespace ipc {

/// A shared object with methods and events. A subclass overrides `onMethodCall()` and answers each call, at once or later,
/// on a copy of its context; a call that it never answers stays pending at the caller until cancelled or until one side dies.
class FN_EXPORT CallableObjectInstance : public ObjectInstance {
public:
    /// Identifies one incoming call: request ids are the calling worker's own.
    struct CallContext {
        WorkerId workerId = NO_WORKER_ID; ///< This value, or the next one's: nobody waits for an answer.
        std::uint32_t requestId = call::NO_REQUEST_ID;
        friend bool operator==(const CallContext&, const CallContext&) = default;
    };

    explicit CallableObjectInstance(Worker& worker);

protected:
    ~CallableObjectInstance() override;
    void onMessage(WorkerId sourceWorkerId, const fn::Value& message) override;

    virtual void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument);
    virtual void onMethodCallCancelled(const CallContext& context); ///< The caller ignores what is still sent.

    void sendResult(const CallContext& context, const fn::Value& result);
    void sendError(const CallContext& context, const fn::Value& error);
    void sendError(const CallContext& context, const fn::Exception& exception);
    void sendError(const CallContext& context, std::exception_ptr exception);

    void postEvent(WorkerId workerId, const fn::String& name, const fn::Value& argument);
    void broadcastEvent(const fn::String& name, const fn::Value& argument); ///< To every holder of a reference.
};

} // namespace ipc
