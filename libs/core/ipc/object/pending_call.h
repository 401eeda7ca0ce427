#pragma once
#include "core/ipc/object/payload_reader.h"
#include "foundation/duration.h"
#include "foundation/handle.h"
#include "foundation/promise.h"
#include "foundation/value.h"
#include <cstdint>
#include <string_view>

namespace ipc {

class CallableObjectReference;
class ObjectReference;

/// In place of a time limit: none, also where the interface has one.
inline constexpr fn::Duration noTimeLimit = fn::Duration(INT64_MAX);

/// A call that waits for its answer: the part of the promise's state that does not depend on the type of the result. It keeps the
/// reference alive meanwhile.
class FN_EXPORT PendingCall {
public:
    PendingCall(const PendingCall&) = delete;
    PendingCall& operator=(const PendingCall&) = delete;

    std::uint32_t requestId() const { return _requestId; } ///< Names the call among those of its worker.
    std::string_view method() const { return _method; } ///< The method's name.

    void retain() const noexcept { _node.retain(); } ///< Counts one holder of the call more.
    void release() const noexcept { _node.release(); } ///< Counts one holder less.

    /// Reads the result, and fulfils the promise with it. Throws what reading throws; for a result of another type that names the
    /// class and the method.
    void fulfillFrom(PayloadReader& result, const ObjectReference& reference);
    /// Default: by way of its bytes.
    virtual void fulfillWithValue(const fn::Value& result, ObjectHost& host, const ObjectReference& reference);
    /// Ends the call with a failure.
    void reject(std::exception_ptr failure) const { _node.reject(std::move(failure)); }
    bool isSettled() const { return _node.settled(); } ///< Also when it was cancelled.

    /// Whether the method may be called again where nobody knows if it was: the object has gone.
    bool isRepeatable() const { return _isRepeatable; }
    void setRepeatable() { _isRepeatable = true; } ///< It may be made again, where nobody knows whether it was.

    /// What happens when the object goes before it has answered. Unless `callback` takes the call over, and gives true, the promise is
    /// rejected.
    void onObjectDead(folly::Function<bool()> callback) { _onObjectDead = std::move(callback); }

protected:
    /// A base of `node`. `method` is borrowed; for `CallableObjectReference::startCall()` it lives as long as the program.
    PendingCall(fn::internal::PromiseNodeBase& node, std::string_view method);
    virtual ~PendingCall();
    void wasCancelled(); ///< To be called by the node.
    virtual void fulfillWith(PayloadReader& result) = 0; ///< Reads the result, and ends the call with it.

private:
    friend class CallableObjectReference;
    friend class PendingCalls;

    fn::internal::PromiseNodeBase& _node;
    const std::string_view _method;
    fn::AutoPtr<CallableObjectReference> _reference; // Empty when the call is not in the table.
    PendingCall* _next = nullptr; // In the table, which holds it.
    std::uint32_t _requestId = 0;
    fn::Handle _deadline;
    folly::Function<bool()> _onObjectDead;
    bool _isRepeatable = false;
    bool _isTyped = false;
};

} // namespace ipc
