#pragma once
#include "core/ipc/object/pending_call.h"
#include <cstdint>
#include <vector>

namespace ipc {

/// A call that has left the table, and the hold on its reference, which must outlive the settling of the promise.
struct EndedCall {
    fn::AutoPtr<CallableObjectReference> reference;
    fn::AutoPtr<PendingCall> call; ///< Null if the table had no such call.
    explicit operator bool() const { return static_cast<bool>(call); }
};

/// The pending calls of one reference by request id: a hash table whose entries are the calls themselves. Ids are numbered, so that
/// their low bits spread them evenly.
class PendingCalls {
public:
    PendingCalls() = default;
    PendingCalls(const PendingCalls&) = delete;
    PendingCalls& operator=(const PendingCalls&) = delete;
    ~PendingCalls() { takeAll(); }

    bool contains(std::uint32_t requestId) { return *linkTo(requestId) != nullptr; }
    void add(fn::AutoPtr<PendingCall> call); ///< The table must not contain its id.
    EndedCall take(std::uint32_t requestId);
    std::vector<EndedCall> takeAll(); ///< Ascending by id.

private:
    using Buckets = std::vector<PendingCall*>; // A power of two of them. Each holds a call, which holds the next one.

    PendingCall** linkTo(std::uint32_t requestId); ///< The link that holds this call; a null one if there is none.
    void grow();
    static EndedCall end(PendingCall* call);

    static constexpr std::size_t firstBuckets = 8;
    Buckets _buckets = Buckets(firstBuckets);
    std::size_t _count = 0;
};

} // namespace ipc
