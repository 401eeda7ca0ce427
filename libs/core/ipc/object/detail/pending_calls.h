#pragma once
#include "core/ipc/object/pending_call.h"
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace ipc {

/// A call that has left the table, and the hold on its reference, which must outlive the settling of the promise.
struct EndedCall {
    fn::AutoPtr<CallableObjectReference> reference;
    fn::AutoPtr<PendingCall> call; ///< Null if the table had no such call.
    explicit operator bool() const { return static_cast<bool>(call); }
};

/// The pending calls of one reference by request id.
class PendingCalls {
public:
    bool contains(std::uint32_t requestId) const;
    void add(fn::AutoPtr<PendingCall> call); ///< The table must not contain its id.
    EndedCall take(std::uint32_t requestId);
    std::vector<EndedCall> takeAll(); ///< Ascending by id.

private:
    static EndedCall end(fn::AutoPtr<PendingCall> call);

    using Calls = std::unordered_map<std::uint32_t, fn::AutoPtr<PendingCall>>;

    Calls _calls;
    Calls::node_type _spare; // Of the call that ended last: mostly the next call is made when one has ended.
};

} // namespace ipc
