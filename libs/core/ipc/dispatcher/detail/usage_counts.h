#pragma once
#include "core/ipc/limits.h"
#include "core/ipc/wire/message.h"
#include <optional>
#include <span>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace ipc {

/// The dispatcher's book of who may still use what. No I/O: it says what is counted, what must be released, and what is
/// dropped when a worker dies.
///
/// Per object: `sent`, the messages in which its owner sent it and which are not accounted for yet; and per receiving
/// worker the messages that brought it the object and that it has not released yet. When the last receiver has released
/// an object, its owner is told how often it sent it (a Release), and drops as many holds.
///
/// Invariants: no receiver has a count of 0; no object's own owner is among its receivers; an entry without `sent` and
/// receivers does not exist. A death costs what it frees: both roles of a worker are indexed.
///
/// Broken counts are reported as assertions of the dispatcher and change nothing else.
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
        NoEntry, ///< Nothing is counted there: reported as an assertion, nobody's fault for certain.
        BadCount, ///< Negative or larger than what is held: the sender broke the protocol.
    };

    /// `maxObjects`: how many objects of its own one sender may make it count, and all senders of others': what they made it
    /// count outlives them.
    explicit UsageCounts(std::size_t maxObjects = limits::countedObjects) : _maxObjects(maxObjects) { }

    /// Who holds references to the object, ascending by WorkerId. Invalid after any change.
    std::span<const Receiver> receivers(ObjectId objectId) const;

    /// Whether one more message from `sender` that lists `objectIds` can be counted for `receivers` and, where it owns
    /// them, for itself: no count exceeds `limits::uses`, and `sender` stays within its share.
    bool canCount(WorkerId sender, std::span<const ObjectId> objectIds, std::span<const WorkerId> receivers) const;

    /// A message from `sender` listing the object goes to `receiver`. Nothing where the receiver is the owner.
    void countReceived(WorkerId sender, ObjectId objectId, WorkerId receiver);

    /// The owner has sent its object. If nobody holds a reference, the release that is due at once.
    std::optional<Release> countSent(ObjectId objectId);

    /// `worker` releases `count` of the messages that brought it the object.
    Outcome release(WorkerId worker, ObjectId objectId, std::int32_t count, std::optional<Release>& due);

    /// Drops what is counted for a dead worker: the objects that it owned, and its uses of others' objects. At most `most`
    /// objects in one call; those that are left count as before until the next call. Gives the releases that other owners must
    /// be sent now.
    std::vector<Release> workerDied(WorkerId worker, std::size_t most = SIZE_MAX);

    /// How many objects are counted that the worker holds or owns. For a dead worker the number can still grow: messages of
    /// others may list its objects.
    std::size_t concerned(WorkerId worker) const;

    /// Drops what was counted under an id after its death, when the id is given out again.
    void forget(WorkerId worker);

    std::size_t objectCount() const noexcept { return _entries.size(); }
    std::uint32_t sentCount(ObjectId objectId) const;

    // For inspectors: the objects of one worker that are counted.
    std::size_t ownedCount(WorkerId owner) const;
    std::vector<ObjectId> owned(
        WorkerId owner, ObjectId from, std::size_t most) const; ///< The lowest ids from `from` on.

private:
    struct Entry {
        std::uint32_t sent = 0;
        WorkerId chargedTo = 0; // Whose share it takes.
        std::vector<Receiver> receivers; // Ascending by WorkerId.
    };
    using Entries = std::unordered_map<ObjectId, Entry>;
    struct WorkerIndex {
        std::unordered_set<ObjectId> owned; // Entries of its own objects.
        std::unordered_set<ObjectId> held; // Entries that list it as a receiver.
    };

    Entry& entry(ObjectId objectId, WorkerId sender);
    bool hasRoom(WorkerId share, std::size_t newEntries) const;
    void erase(Entries::iterator entry);
    std::optional<Release> takeRelease(Entries::iterator entry);

    const std::size_t _maxObjects;
    Entries _entries;
    std::unordered_map<WorkerId, WorkerIndex> _index;
    std::unordered_map<WorkerId, std::size_t> _charged; // Entries by the share they take; NO_WORKER_ID's is for all.
};

} // namespace ipc
