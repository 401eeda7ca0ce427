#pragma once
#include "core/ipc/wire/message.h"
#include <cstdint>
#include <unordered_map>

namespace ipc {

/// Tells the references of one worker where to begin numbering their calls: at 1, or behind the calls that earlier references to
/// the same object have cancelled. The answer to such a call may still come, and would end a new call of the same number.
class RequestNumbers {
public:
    /// The number behind which a new reference to the object begins.
    std::uint32_t last(ObjectId objectId) const;

    void cancelled(ObjectId objectId, std::uint32_t requestId);
    void forget(WorkerId owner) { _owners.erase(owner); } ///< `owner` has died: its objects answer no more.

private:
    struct Owner {
        std::uint32_t ofAll = 0; // The number for objects that are not in `objects`.
        std::unordered_map<ObjectId, std::uint32_t> objects;
    };
    std::unordered_map<WorkerId, Owner> _owners;
};

} // namespace ipc
