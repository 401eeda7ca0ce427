#pragma once
#include "base/lifetime.h"
#include "core/ipc/dispatcher/dispatcher.h"

namespace ipc {

/// The inside of a running hub, for pages that show it and for tests that judge it: what is counted, registered and awaited.
/// Reads only. Belongs to the hub's loop; it may outlive the dispatcher, and shows nothing then.
class FN_EXPORT HubInspection final {
public:
    explicit HubInspection(Dispatcher& dispatcher);

    bool isAlive() const { return static_cast<bool>(_watch); } ///< Whether the dispatcher is still there.

    /// Those that have said HELLO, ascending by id.
    std::vector<Dispatcher::WorkerStatistics> workers() const;

    // Shared objects that somebody uses.
    struct Holder {
        WorkerId workerId;
        std::uint32_t count; ///< Messages that brought it the object and that it has not released yet.
    };
    std::size_t objectCount() const;
    std::size_t ownedCount(WorkerId owner) const;
    std::vector<ObjectId> owned(
        WorkerId owner, ObjectId from, std::size_t most) const; ///< The lowest ids from `from` on.
    std::uint32_t sentCount(ObjectId objectId) const; ///< Messages in which its owner has sent it.
    std::vector<Holder> holders(ObjectId objectId) const; ///< Ascending by worker.

    // The registry: `most` entries behind the first `skip`, by class, of a class as looked up.
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
    std::size_t registrationCount() const;
    std::vector<Registration> registrations(std::size_t skip, std::size_t most) const;
    std::size_t waiterCount() const;
    std::vector<Waiter> waiters(std::size_t skip, std::size_t most) const;

private:
    const class RegistryImpl* registry() const; // Null before `onReady()`.

    const Hub* _hub;
    fn::Lifetime::Watch _watch;
};

} // namespace ipc
