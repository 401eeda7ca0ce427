#pragma once
#include "base/lifetime.h"
#include "core/ipc/dispatcher/dispatcher.h"

namespace ipc {

/// The inside of a running hub, for pages that show it and tests that judge it: its workers, the counts of objects, the
/// registry. Only reads. Belongs to the hub's loop; it may outlive the dispatcher, and shows nothing then.
class FN_EXPORT HubInspection final {
public:
    explicit HubInspection(Dispatcher& dispatcher); ///< Shows this dispatcher's hub.

    bool isAlive() const { return static_cast<bool>(_watch); } ///< Whether the dispatcher is still there.

    /// The workers that have said HELLO, ascending by id.
    std::vector<Dispatcher::WorkerStatistics> workers() const;

    // The shared objects that the hub counts (dispatcher/detail/usage_counts.h).
    struct Holder {
        WorkerId workerId;
        std::uint32_t count; ///< Messages that brought the worker the object and that it has not released yet.
    };
    std::size_t objectCount() const; ///< All objects that the hub counts.
    std::size_t ownedCount(WorkerId owner) const; ///< How many of them one worker owns.
    /// The `most` lowest ids of the owner's counted objects that are at least `from`.
    std::vector<ObjectId> owned(WorkerId owner, ObjectId from, std::size_t most) const;
    std::uint32_t sentCount(ObjectId objectId) const; ///< Messages in which the owner has sent the object.
    std::vector<Holder> holders(ObjectId objectId) const; ///< Ascending by worker.

    // The registry's entries, at most `most` behind the first `skip`: by class name, and within a class in the order in which
    // a look-up prefers them, or in which the look-ups came.
    struct Registration {
        fn::String className;
        std::int32_t priority;
        ObjectId objectId;
        WorkerId registeredBy;
        bool hidden;
    };
    struct Waiter {
        fn::String className;
        WorkerId workerId;
    };
    std::size_t registrationCount() const; ///< Objects that are registered now, hidden ones included.
    /// A part of them in the order of looking up: without the first `skip`, `most` of them.
    std::vector<Registration> registrations(std::size_t skip, std::size_t most) const;
    std::size_t waiterCount() const; ///< Look-ups that wait for an object.
    /// A part of them, the earliest first: without the first `skip`, `most` of them.
    std::vector<Waiter> waiters(std::size_t skip, std::size_t most) const;

private:
    const class RegistryImpl* registry() const; // Null before `onReady()`.

    const Hub* _hub;
    fn::Lifetime::Watch _watch;
};

} // namespace ipc
