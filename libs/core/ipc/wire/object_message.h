#pragma once
#include "core/ipc/wire/message.h"
#include "core/ipc/wire/message_helper.h"
#include <optional>

namespace ipc {

/// A MESSAGE that mentions no objects, read from and written to its frame without a map in between: the plain case, in
/// which nearly every call, answer and event travels.
///
/// `parse()` takes exactly the form that `encode()` and `forwarded()` write (ascending keys, a payload, no object, nothing
/// unknown). Whatever else is a valid MESSAGE, and everything that is none, goes the general way through `fn::Value`.
struct FN_EXPORT ObjectMessage {
    ObjectId objectId = 0;
    std::optional<WorkerId> source; ///< Once forwarded.
    WorkerId target = NO_WORKER_ID;
    fn::ByteArray payload; ///< Of a parsed message: shares the frame's memory.

    /// Empty if `body` (of a frame) is no such message.
    static std::optional<ObjectMessage> parse(const fn::ByteArray& body);

    /// The frame. A body above `maxBytes`: `fn::RangeException`.
    Frame encode(std::size_t maxBytes) const;
};

} // namespace ipc
