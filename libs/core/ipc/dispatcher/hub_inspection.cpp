#include "core/ipc/dispatcher/hub_inspection.h"
#include "core/ipc/detail/registry_impl.h"
#include "core/ipc/dispatcher/detail/hub.h"

namespace ipc {

HubInspection::HubInspection(Dispatcher& dispatcher)
    : _hub(dispatcher._hub.get()),
      _watch(dispatcher.lifetime().watch())
{
}

std::vector<Dispatcher::WorkerStatistics> HubInspection::workers() const
{
    return _watch ? _hub->workers() : std::vector<Dispatcher::WorkerStatistics>();
}

std::size_t HubInspection::objectCount() const { return _watch ? _hub->usageCounts().objectCount() : 0; }
std::size_t HubInspection::ownedCount(WorkerId owner) const
{
    return _watch ? _hub->usageCounts().ownedCount(owner) : 0;
}

std::vector<ObjectId> HubInspection::owned(WorkerId owner, ObjectId from, std::size_t most) const
{
    return _watch ? _hub->usageCounts().owned(owner, from, most) : std::vector<ObjectId>();
}

std::uint32_t HubInspection::sentCount(ObjectId objectId) const
{
    return _watch ? _hub->usageCounts().sentCount(objectId) : 0;
}

std::vector<HubInspection::Holder> HubInspection::holders(ObjectId objectId) const
{
    std::vector<Holder> holders;
    if (!_watch) return holders;
    for (const auto& [workerId, count] : _hub->usageCounts().receivers(objectId))
        holders.push_back({ workerId, count });
    return holders;
}

const RegistryImpl* HubInspection::registry() const { return _watch ? _hub->registryImpl().get() : nullptr; }

std::size_t HubInspection::registrationCount() const { return registry() ? registry()->registrationCount() : 0; }

std::vector<HubInspection::Registration> HubInspection::registrations(std::size_t skip, std::size_t most) const
{
    return registry() ? registry()->registrations(skip, most) : std::vector<Registration>();
}

std::size_t HubInspection::waiterCount() const { return registry() ? registry()->waiterCount() : 0; }

std::vector<HubInspection::Waiter> HubInspection::waiters(std::size_t skip, std::size_t most) const
{
    return registry() ? registry()->waiters(skip, most) : std::vector<Waiter>();
}

} // namespace ipc
