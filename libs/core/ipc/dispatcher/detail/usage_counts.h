#pragma once
#include "core/ipc/limits.h"
#include "core/ipc/wire/message.h"
#include <optional>
#include <span>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace ipc {

/// The dispatcher's book of which workers may still use which objects. It does no I/O: its methods give the releases that the
/// dispatcher must send.
///
/// The book has one entry for each shared object. `sent` counts the messages in which the owner sent the object since the
/// entry was made. Each receiver has a count of the messages that brought it the object and that it has not released yet.
/// When the last receiver has released the object, the entry goes, and the owner must be sent a Release: it drops `sent` holds.
///
/// Invariants: no receiver has a count of 0; no owner is among the receivers of its object; each entry has a receiver or a
/// `sent` above 0. A worker's death costs time for the objects that it owned or held only: an index lists both.
///
/// A release that does not fit the counts is reported as an assertion of the dispatcher and changes nothing.
class UsageCounts {
public:
    /// The owner of `objectId` is to drop `count` holds.
    struct Release {
        ObjectId objectId;
        std::uint32_t count;
        friend bool operator==(const Release&, const Release&) = default;
    };
    struct Receiver {
        WorkerId workerId;
        std::uint32_t count;
    };
    enum class Outcome {
        Done,
        NoEntry, ///< The worker has no count for the object. Reported as an assertion; the sender may have done no wrong.
        BadCount, ///< The number is negative or above the worker's count: the sender broke the protocol.
    };

    /// `maxObjects` bounds the entries that one sender makes for its own objects, and also those that all senders together make
    /// for objects of other workers: the latter outlive their sender, so that a share for each sender would bound nothing.
    explicit UsageCounts(std::size_t maxObjects = limits::countedObjects) : _maxObjects(maxObjects) { }

    /// The workers that hold references to the object, ascending by WorkerId. The span is invalid after any change.
    std::span<const Receiver> receivers(ObjectId objectId) const;

    /// Whether one more message from `sender` to `receivers` that lists `objectIds` can be counted: no count would exceed
    /// `limits::uses`, and the new entries stay within `maxObjects`.
    bool canCount(WorkerId sender, std::span<const ObjectId> objectIds, std::span<const WorkerId> receivers) const;

    /// Counts a message from `sender` to `receiver` that lists the object. Does nothing where `receiver` owns the object.
    void countReceived(WorkerId sender, ObjectId objectId, WorkerId receiver);

    /// Counts a message in which the owner has sent its object. If no worker holds a reference, gives the release that is due.
    std::optional<Release> countSent(ObjectId objectId);

    /// `worker` releases `count` of the messages that brought it the object. Sets `due` where it was the last receiver.
    Outcome release(WorkerId worker, ObjectId objectId, std::int32_t count, std::optional<Release>& due);

    /// Drops the counts of a dead worker: first as a receiver of others' objects, then the entries of its own objects. One call
    /// takes at most `most` objects; those that are left count as before until the next call. Gives the releases that other
    /// owners must be sent now.
    std::vector<Release> workerDied(WorkerId worker, std::size_t most = SIZE_MAX);

    /// How many entries there are of objects that the worker owns or is a receiver of.
    std::size_t concerned(WorkerId worker) const;

    std::size_t objectCount() const noexcept { return _entries.size(); }
    std::uint32_t sentCount(ObjectId objectId) const;

    // For inspectors: the entries of one owner's objects. `owned()` gives the `most` lowest ids that are at least `from`.
    std::size_t ownedCount(WorkerId owner) const;
    std::vector<ObjectId> owned(WorkerId owner, ObjectId from, std::size_t most) const;

private:
    struct Entry {
        std::uint32_t sent = 0;
        WorkerId chargedTo = 0; // The key in `_charged` under which this entry counts.
        std::vector<Receiver> receivers; // Ascending by WorkerId.
    };
    using Entries = std::unordered_map<ObjectId, Entry>;
    struct WorkerIndex {
        std::unordered_set<ObjectId> owned; // Entries of the worker's own objects.
        std::unordered_set<ObjectId> held; // Entries in which the worker is a receiver.
    };

    Entry& entry(ObjectId objectId, WorkerId sender);
    bool hasRoom(WorkerId share, std::size_t newEntries) const;
    void erase(Entries::iterator entry);
    std::optional<Release> takeRelease(Entries::iterator entry);

    const std::size_t _maxObjects;
    Entries _entries;
    std::unordered_map<WorkerId, WorkerIndex> _index;
    // How many entries each sender has made for its own objects; under NO_WORKER_ID those made for objects of others.
    std::unordered_map<WorkerId, std::size_t> _charged;
};

} // namespace ipc
