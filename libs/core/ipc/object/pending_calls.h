#pragma once
#include "foundation/promise.h"
#include "foundation/value.h"
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace ipc {

class CallableObjectReference;

/// A call that waits for its answer: the state of the promise its caller got, and what keeps the reference alive meanwhile.
class FN_EXPORT PendingCall final : public fn::internal::PromiseNode<fn::Value> {
public:
    PendingCall(fn::AutoPtr<CallableObjectReference> reference, fn::String method, std::uint32_t requestId);

    std::uint32_t requestId() const { return _requestId; }
    const fn::String& method() const { return _method; }

private:
    friend class PendingCalls;
    ~PendingCall() override;
    void wasCancelled() override;

    fn::AutoPtr<CallableObjectReference> _reference; // Until the call leaves the table.
    const fn::String _method;
    const std::uint32_t _requestId;
};

/// The pending calls of one reference by request id.
class FN_EXPORT PendingCalls {
public:
    /// A call that has left the table. It lets go of the reference after it has been settled.
    struct Ended {
        fn::AutoPtr<CallableObjectReference> reference;
        fn::AutoPtr<PendingCall> call; ///< Null: there was none.
        explicit operator bool() const { return static_cast<bool>(call); }
    };

    bool contains(std::uint32_t requestId) const;
    void add(fn::AutoPtr<PendingCall> call); ///< Its id is not contained.
    Ended take(std::uint32_t requestId);
    std::vector<Ended> takeAll(); ///< Ascending by id.

private:
    static Ended end(fn::AutoPtr<PendingCall> call);

    std::unordered_map<std::uint32_t, fn::AutoPtr<PendingCall>> _calls;
};

} // namespace ipc
