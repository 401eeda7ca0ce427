#pragma once
#include "core/ipc/object/call_message.h"
#include "core/ipc/object/object_instance.h"
#include <cstddef>
#include <exception>
#include <type_traits>

namespace ipc {

/// A shared object with methods and events. A subclass overrides `onMethodCall()` and answers each call, at once or later,
/// on a copy of its context; a call that it never answers stays pending at the caller until cancelled or until one side dies.
/// There is no time-out: a caller that wants one cancels.
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

    /// An override hands what is not its own to this one: calls arrive here.
    void onMessage(WorkerId sourceWorkerId, const fn::Value& message) override;

    /// A call. Answer it with `sendResult()` or `sendError()`, and a method that there is not with `sendUnknownMethod()`: who
    /// is not answered waits. An exception before the answer is the answer; one that nobody awaits any more goes to
    /// `fn::unhandledException()`. Default: no answer.
    virtual void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument);
    virtual void onMethodCallCancelled(const CallContext& context); ///< The caller ignores what is still sent.

    // The first answer of a call ends it, at the caller; later ones are ignored there. An answer that cannot be sent (it is
    // nested too deeply, too large, holds what cannot travel) is replaced by the exception that says why, for callers in
    // other workers and in this one alike; in this one no size is too large.
    void sendResult(const CallContext& context, const fn::Value& result = {});
    void sendError(const CallContext& context, const fn::Value& error); ///< A `fn::RuntimeException` of its text.
    void sendError(const CallContext& context, const fn::Exception& exception); ///< The same class, with its details.
    void sendError(const CallContext& context, const std::exception& exception); ///< As what it is.
    void sendError(const CallContext& context, std::exception_ptr exception); ///< As what it holds.

    /// No more than that it failed: `sendError(context, {})`, `sendError(context, nullptr)`, `sendError(context)`.
    template <typename Nothing = std::nullptr_t>
    requires std::is_null_pointer_v<Nothing>
    void sendError(const CallContext& context, Nothing = {}) { sendError(context, fn::Value()); }

    /// The answer to a call of a method that there is not: an error that names this object's class and the method.
    void sendUnknownMethod(const CallContext& context, const fn::String& name);

    void postEvent(WorkerId workerId, const fn::String& name, const fn::Value& argument = {});
    void broadcastEvent(const fn::String& name, const fn::Value& argument = {}); ///< To every holder of a reference.

private:
    friend class Worker;

    /// The call in the middle of which this object is.
    struct CurrentCall {
        CallContext context;
        CurrentCall* outer; // A method may run the loop.
        bool isAnswered = false;
    };

    void handleCall(const CallContext& context, const fn::Value& message);
    bool failCall(WorkerId source, const fn::Value& message, const std::exception_ptr& failure); // False: no call.
    void answer(const CallContext& context, bool isResult, const fn::Value& content);
    void sendAnswer(const CallContext& context, bool isResult, const fn::Value& content);

    CurrentCall* _currentCall = nullptr;
};

} // namespace ipc
