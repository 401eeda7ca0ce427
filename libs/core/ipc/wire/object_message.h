#pragma once
#include "base/exceptions.h"
#include "core/ipc/wire/frame_output_stream.h"
#include "core/ipc/wire/message.h"
#include "foundation/value.h"
#include <optional>

namespace ipc {

/// A MESSAGE that mentions no objects, read from and written to its frame without a map in between: the plain case, in
/// which nearly every call, answer and event travels.
///
/// `parse()` takes exactly the form that `encode()` writes (ascending keys, a payload, no object, nothing unknown). Whatever
/// else is a valid MESSAGE, and everything that is none, goes the general way through `fn::Value`.
struct FN_EXPORT ObjectMessage {
    ObjectId objectId = 0;
    std::optional<WorkerId> source; ///< Once forwarded.
    WorkerId target = NO_WORKER_ID;
    fn::ByteView payload; ///< Borrowed from the frame's body, or from who sends it.
    fn::ByteArray shared; ///< The same bytes where they can be shared instead of copied; empty otherwise.

    /// Empty if `body` is no such message.
    static std::optional<ObjectMessage> parse(const FrameBody& body);

    /// The frame. A body above `maxBytes`: `fn::RangeException`.
    Frame encode(std::size_t maxBytes) const;
};

/// Makes a MESSAGE whose payload is written straight into the frame: what stands before the payload follows when its length
/// is known.
class FN_EXPORT ObjectMessageWriter {
public:
    ObjectMessageWriter();

    fn::OutputStream& payload() { return _stream; }

    /// The frame. `objects`: what the payload mentions, by ObjectId; nil for none. A body above `maxBytes`:
    /// `fn::RangeException`.
    Frame finish(ObjectId objectId, WorkerId target, const fn::Value& objects, std::size_t maxBytes);

private:
    FrameOutputStream _stream;
};

} // namespace ipc
