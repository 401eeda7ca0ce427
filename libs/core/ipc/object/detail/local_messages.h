#pragma once
#include "core/ipc/object/detail/call_fields.h"
#include <array>
#include <memory>

namespace ipc {

/// A call, an answer or an event that waits in the loop's queue for its receiver in the sender's own worker.
struct LocalMessage {
    WorkerId source = NO_WORKER_ID;
    CallHead head {};
    EncodedPayload content;
};

/// Makes them, and keeps the memory of a few that have been delivered for the next ones: a local call takes four allocations instead
/// of eight. Belongs to the worker's loop.
class LocalMessages {
public:
    struct GiveBack {
        LocalMessages* from; ///< Outlives the message.
        void operator()(LocalMessage* message) const noexcept
        {
            from->giveBack(std::unique_ptr<LocalMessage>(message));
        }
    };
    using Holder = std::unique_ptr<LocalMessage, GiveBack>; ///< Small enough to lie in a task.

    Holder take();

private:
    void giveBack(std::unique_ptr<LocalMessage> message) noexcept;

    std::array<std::unique_ptr<LocalMessage>, 16> _kept;
    std::size_t _keptCount = 0;
};

} // namespace ipc
