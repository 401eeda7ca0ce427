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

/// Which ids the dispatcher has given out, which of them are dead, and who has been told so. No I/O.
///
/// Accepted connections and told deaths are numbered in one sequence: who was accepted before a death has heard of it with
/// everybody else. What is told to one connection alone is noted with it.
class WorkerIds {
public:
    /// The part of one connection.
    class Listener {
    public:
        /// Connections are ordered by it.
        std::uint64_t acceptedAt() const noexcept { return _acceptedAt; }

    private:
        friend class WorkerIds;
        using Ids = std::bitset<NO_WORKER_ID + 1>;
        explicit Listener(std::uint64_t acceptedAt) : _acceptedAt(acceptedAt) { }

        const std::uint64_t _acceptedAt;
        std::unique_ptr<Ids> _toldAlone; // 8 KiB, made when first needed.
    };

    explicit WorkerIds(WorkerId count = NO_WORKER_ID) : _count(count) { } ///< From 0 on.

    Listener accept() { return Listener(_nextSerial++); }

    /// Every connection that is there is told now that the worker is dead; from now on its id may be given out again.
    void died(WorkerId id);

    /// Whether `listener` must be told now that this worker, which is not connected, is dead: its connection is younger than
    /// the death, or the id was never given out. It counts as told from then on. False while the
    /// notice for everybody has not been sent: that notice will reach this listener, too.
    bool mustTell(Listener& listener, WorkerId id) const;

    bool isTold(const Listener& listener, WorkerId id) const;

    /// The id for the next worker; empty when all are in use. After the first round one whose death none of `others` has been
    /// told, the longest dead if there is none: what they keep of the dead must not be taken for the new worker's.
    std::optional<WorkerId> next(std::span<const Listener* const> others) const;

    void giveOut(WorkerId id); ///< As told by `next()`.
    void forget(Listener& listener, WorkerId id) const; ///< It has been told that the id is given out again.

private:
    static constexpr std::uint64_t alive = UINT64_MAX;
    struct State {
        std::uint64_t death = alive; // Its number in the sequence.
        WorkerId previous = NO_WORKER_ID, next = NO_WORKER_ID; // Among those that are free.
    };

    std::uint64_t deathOf(WorkerId id) const { return id < _states.size() ? _states[id].death : alive; }

    std::uint64_t _nextSerial = 0;
    const WorkerId _count;
    WorkerId _next = 0; // The first round; `_count` when it is over.
    std::vector<State> _states; // By id, of those up to the greatest that has died: many die in a long life.
    // The ends of a list by their deaths. 0 is never in it: the dispatcher's own worker to everybody, for ever.
    WorkerId _longestFree = NO_WORKER_ID, _latestFree = NO_WORKER_ID;
};

} // namespace ipc
