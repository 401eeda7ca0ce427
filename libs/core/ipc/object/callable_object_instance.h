#pragma once
#include "core/ipc/object/object_instance.h"
#include <compare>
#include <cstddef>
#include <exception>
#include <functional>
#include <type_traits>

namespace ipc {

/// A shared object with methods and events. A subclass overrides `onMethodCall()` and answers each call, at once or later,
/// on a copy of its context; a call that it never answers stays pending at the caller until cancelled or until one side dies.
/// There is no time-out: a caller that wants one cancels.
class FN_EXPORT CallableObjectInstance : public ObjectInstance {
public:
    /// Identifies one incoming call. The calling worker chooses the request id.
    struct CallContext {
        WorkerId workerId = NO_WORKER_ID; ///< With NO_WORKER_ID or NO_REQUEST_ID no caller waits for an answer.
        std::uint32_t requestId = NO_REQUEST_ID; ///< Names the call among those of its worker.
        friend auto operator<=>(const CallContext&, const CallContext&) = default;

        /// Whether the caller waits for an answer: only with a request id and a worker id. An answer to NO_WORKER_ID would reach
        /// every holder of a reference, and end calls of the same number.
        bool isAwaited() const { return requestId != NO_REQUEST_ID && workerId != NO_WORKER_ID; }
    };

    explicit CallableObjectInstance(Worker& worker); ///< The worker must be connected.

protected:
    ~CallableObjectInstance() override;

    /// Handles calls. An override passes messages that it does not know to this one.
    void onMessage(WorkerId sourceWorkerId, const fn::Value& message) override;

    /// Handles a call: answers with `sendResult()` or `sendError()`, and for an unknown method with `sendUnknownMethod()`. Without
    /// an answer the caller goes on waiting. An exception becomes the answer, unless the call has been answered or its caller
    /// does not wait; then it goes to `fn::unhandledException()`. Default: no answer.
    virtual void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument);
    virtual void onMethodCallCancelled(const CallContext& context); ///< The caller ignores later answers.

    // The first answer of a call ends it at the caller, who ignores later ones. An answer that cannot be sent (nested too deeply,
    // too large, with a value that cannot travel) is replaced by the exception that says why, for callers in other workers and
    // in this one alike; in this one no size is too large.
    /// Answers the call; nil where there is nothing to say.
    void sendResult(const CallContext& context, const fn::Value& result = {});
    void sendError(const CallContext& context, const fn::Value& error); ///< `fn::RuntimeException` with its text.
    void sendError(const CallContext& context, const fn::Exception& exception); ///< Of the same class, with details.
    void sendError(const CallContext& context, const std::exception& exception); ///< With details if it has them.
    void sendError(const CallContext& context, std::exception_ptr exception); ///< The exception that it holds.

    /// Fails the call without a reason: `sendError(context, {})`, `sendError(context, nullptr)`, `sendError(context)`.
    template <typename Nothing = std::nullptr_t>
    requires std::is_null_pointer_v<Nothing>
    void sendError(const CallContext& context, Nothing = {}) { sendError(context, fn::Value()); }

    /// Answers the call of an unknown method with an error that names this object's class and the method.
    void sendUnknownMethod(const CallContext& context, const fn::String& name);

    /// Sends an event to the holders in one worker; with NO_WORKER_ID to all, as `broadcastEvent()`. Throws what
    /// encoding throws.
    void postEvent(WorkerId workerId, const fn::String& name, const fn::Value& argument = {});
    void broadcastEvent(const fn::String& name, const fn::Value& argument = {}); ///< To every holder of a reference.

private:
    /// A call that `onMethodCall()` is handling.
    struct CurrentCall {
        CallContext context;
        CurrentCall* outer; // The call around this one: a method may run the loop, which may bring the next call.
        bool isAnswered = false;
    };

    void handleCall(const CallContext& context, const fn::Value& message);
    friend class ObjectInstance;
    bool failCall(WorkerId source, const fn::Value& message, const std::exception_ptr& failure); // False: no call.
    void answer(const CallContext& context, bool isResult, const fn::Value& content);
    void sendAnswer(const CallContext& context, bool isResult, const fn::Value& content);

    CurrentCall* _currentCall = nullptr;
};

} // namespace ipc

template <> struct std::hash<ipc::CallableObjectInstance::CallContext> {
    std::size_t operator()(const ipc::CallableObjectInstance::CallContext& context) const noexcept
    {
        return std::hash<std::uint64_t>()(std::uint64_t(context.requestId) << 16 | context.workerId);
    }
};
