#pragma once
#include "base/export.h"
#include "core/ipc/wire/message.h"
#include <bitset>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace ipc {

/// The book of worker ids: which the dispatcher has given out, which of them belong to dead workers, and which connections
/// have been told of each death. No I/O.
///
/// One sequence numbers the accepted connections and the deaths: a connection with a lower number than a death was there when
/// everybody was told of it. Deaths that are told to one connection alone are noted in its Listener.
class WorkerIds {
public:
    /// What one connection has been told.
    class Listener {
    public:
        /// The number of the connection in the sequence; connections are ordered by it.
        std::uint64_t acceptedAt() const noexcept { return _acceptedAt; }

    private:
        friend class WorkerIds;
        using Ids = std::bitset<NO_WORKER_ID + 1>;
        explicit Listener(std::uint64_t acceptedAt) : _acceptedAt(acceptedAt) { }

        const std::uint64_t _acceptedAt;
        std::unique_ptr<Ids> _toldAlone; // The deaths told to this connection alone: 8 KiB, made when first needed.
    };

    explicit WorkerIds(WorkerId count = NO_WORKER_ID) : _count(count) { } ///< The ids are those from 0 to `count` - 1.

    Listener accept() { return Listener(_nextSerial++); }

    /// To be called when the dispatcher tells every connection of the worker's death. From then on the id may be given out again.
    void died(WorkerId id);

    /// Whether `listener` must be told now that the worker of this id, which is not connected, is dead. True where the
    /// connection is younger than the death, or the id was never given out; the listener then counts as told. False while the
    /// notice for everybody is still to be sent: that notice will reach this listener, too.
    bool mustTell(Listener& listener, WorkerId id) const;

    bool isTold(const Listener& listener, WorkerId id) const;

    /// The id for the next worker; empty when all are in use. Ids that were never used go first. Then comes the longest dead one
    /// whose death none of `others` has been told, so that no reference which they keep of the dead worker's objects is taken
    /// for one of the new worker's; if there is no such id, the longest dead one.
    std::optional<WorkerId> next(std::span<const Listener* const> others) const;

    void giveOut(WorkerId id); ///< `id` is what `next()` has just given; it is in use from now on.
    void forget(Listener& listener, WorkerId id) const; ///< `listener` has been told that the id is given out again.

private:
    static constexpr std::uint64_t alive = UINT64_MAX;
    struct State {
        std::uint64_t death = alive; // The number of its death in the sequence.
        WorkerId previous = NO_WORKER_ID, next = NO_WORKER_ID; // Neighbours in the list of free ids.
    };

    std::uint64_t deathOf(WorkerId id) const { return id < _states.size() ? _states[id].death : alive; }

    std::uint64_t _nextSerial = 0;
    const WorkerId _count;
    WorkerId _next = 0; // The lowest id that was never given out; `_count` when there is none.
    std::vector<State> _states; // By id, up to the greatest one that has died.
    // The ends of the list of free ids, in the order of their deaths. Id 0 is never free: it names the dispatcher's own worker.
    WorkerId _longestFree = NO_WORKER_ID, _latestFree = NO_WORKER_ID;
};

} // namespace ipc
