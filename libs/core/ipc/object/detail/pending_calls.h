#pragma once
#include "foundation/promise.h"
#include "foundation/value.h"
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace ipc {

class CallableObjectReference;

/// A call that waits for its answer: the state of the promise that its caller has got. It keeps the reference alive meanwhile.
class PendingCall final : public fn::internal::PromiseNode<fn::Value> {
public:
    PendingCall(fn::AutoPtr<CallableObjectReference> reference, fn::String method, std::uint32_t requestId);

    std::uint32_t requestId() const { return _requestId; }
    const fn::String& method() const { return _method; }

private:
    friend class PendingCalls;
    ~PendingCall() override;
    void wasCancelled() override;

    fn::AutoPtr<CallableObjectReference> _reference; // Empty when the call has left the table.
    const fn::String _method;
    const std::uint32_t _requestId;
};

/// The pending calls of one reference by request id.
class PendingCalls {
public:
    /// A call that has left the table, and the hold on its reference, which must outlive the settling of the promise.
    struct Ended {
        fn::AutoPtr<CallableObjectReference> reference;
        fn::AutoPtr<PendingCall> call; ///< Null if the table had no such call.
        explicit operator bool() const { return static_cast<bool>(call); }
    };

    bool contains(std::uint32_t requestId) const;
    void add(fn::AutoPtr<PendingCall> call); ///< The table must not contain its id.
    Ended take(std::uint32_t requestId);
    std::vector<Ended> takeAll(); ///< Ascending by id.

private:
    static Ended end(fn::AutoPtr<PendingCall> call);

    std::unordered_map<std::uint32_t, fn::AutoPtr<PendingCall>> _calls;
};

} // namespace ipc
