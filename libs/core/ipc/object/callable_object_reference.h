#pragma once
#include "core/ipc/object/object_dead_exception.h"
#include "core/ipc/object/object_reference.h"
#include "core/ipc/object/payload_writer.h"
#include "foundation/duration.h"
#include "foundation/promise.h"
#include <memory>

namespace ipc {

class PendingCall;
class PendingCalls;
struct EndedCall;

/// A shared object whose methods can be called. Subclasses wrap `callMethod()` in typed operations.
class FN_EXPORT CallableObjectReference : public ObjectReference {
public:
    /// As every reference: see ObjectReference.
    explicit CallableObjectReference(ObjectReferenceInitializer& initializer);

    /// Calls a method of the instance. The promise ends in exactly one way:
    ///  - fulfilled with the result, or rejected with the error of the instance, as an exception of the same class;
    ///  - rejected with `ipc::ObjectDeadException` when the instance's worker has gone or goes, or with what encoding the
    ///    argument threw;
    ///  - cancelled by the caller: the instance is told, an answer on its way is ignored.
    /// The pending call keeps the reference alive. There is no time-out: if the instance does not answer, the promise stays
    /// pending. Dropping the promise cancels nothing; its `then()` needs a running loop.
    fn::Promise<fn::Value> callMethod(const fn::String& name, const fn::Value& argument = {});

    ~CallableObjectReference() override;

protected:
    /// Handles answers and events. An override passes messages that it does not know to this one.
    void onMessage(const fn::Value& message) override;
    void onObjectDead() override; ///< Rejects the pending calls; those that an override leaves are rejected after it.

    /// The exception that a call is rejected with for an error value. Default: rebuilds an exception record; any other
    /// value becomes a `fn::RuntimeException` with its text.
    virtual std::exception_ptr onError(const fn::Value& error);
    virtual void onEvent(const fn::String& name, const fn::Value& argument); ///< Default: nothing.

    // For the library's own classes, whose calls write their arguments and read their results themselves.

    /// Sends `call`, which is rejected with `fn::OperationTimedOutException` after `limit`, if that is not zero, or when the time of
    /// the work that calls is up (`fn::WorkContext`). What is left, and the trace, go with it. While the loop runs on another thread:
    /// `fn::RuntimeException`.
    void startCall(const fn::AutoPtr<PendingCall>& call, PayloadSource argument, fn::Duration limit);
    void endCall(std::uint32_t requestId, PayloadReader& result); ///< An answer has come.
    void failCall(std::uint32_t requestId, const fn::Value& error); ///< The answer is an error.

private:
    friend class ObjectReference;
    friend class PendingCall;

    void checkThread(const PendingCall& call) const;
    void addCall(const fn::AutoPtr<PendingCall>& call);
    std::uint32_t nextRequestId();
    EndedCall takeCall(std::uint32_t requestId);
    void cancelCall(std::uint32_t requestId);
    void sendCancel(std::uint32_t requestId);
    void onDeadline(std::uint32_t requestId, fn::Duration limit);
    void rejectPendingCalls(); // With ObjectDeadException.
    bool failCall(const fn::Value& message, const std::exception_ptr& failure); // False if `message` is no answer.

    std::uint32_t _requestCounter = 0;
    std::unique_ptr<PendingCalls> _pendingCalls; // Made by the first call.
};

} // namespace ipc
