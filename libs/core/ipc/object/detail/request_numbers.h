#pragma once
#include "core/ipc/wire/message.h"
#include <cstdint>
#include <unordered_map>

namespace ipc {

/// Where the references of one worker begin to number their calls. Each counts from 1, but not where an earlier reference to the
/// same object has cancelled a call: its answer may still come, and would end the call that has its number then.
class RequestNumbers {
public:
    /// A new reference numbers its calls from the one behind this on.
    std::uint32_t last(ObjectId objectId) const;

    void cancelled(ObjectId objectId, std::uint32_t requestId);
    void forget(WorkerId owner) { _owners.erase(owner); } ///< It is dead: no answer of its objects comes any more.

private:
    struct Owner {
        std::uint32_t ofAll = 0; // The least for objects whose own numbers have been dropped.
        std::unordered_map<ObjectId, std::uint32_t> objects;
    };
    std::unordered_map<WorkerId, Owner> _owners;
};

} // namespace ipc
