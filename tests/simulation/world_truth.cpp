#include "world_truth.h"
#include "core/ipc/dispatcher/hub_inspection.h"
#include <algorithm>
#include <climits>

namespace simulated {

namespace {
constexpr std::uint32_t longPause = 602'000; // A little more than until a module that nobody needs is about to end.
}

std::uint32_t WorldTruth::pause()
{
    return modulesEndIdle && choose(3) == 0 ? longPause - choose(4000) : Witness::pause();
}

void WorldTruth::rest()
{
    // Longer than any launch, look-up, freeze or answer takes.
    const auto untilProof = fn::Duration::milliseconds(38'000 + (modulesEndIdle ? longPause : 0));
    _isResting = true;
    proofTime = _world.now() + untilProof;
    Truth::tell("all rest");
}

void WorldTruth::harmed(const fn::String& name, const char* harm, fn::Duration time)
{
    const auto* const process = _world.find(name);
    const int number = process ? process->id() : 0;
    handle({ .deed = Deed::IsHarmed,
        .number = number,
        .value = time.totalMilliseconds(),
        .text = name.view(),
        .how = harm });
}

int WorldTruth::process() const { return Process::current() ? Process::current()->id() : 0; }

void WorldTruth::tell(Event event)
{
    event.process = process();
    if (event.process && Process::current()->isDead()) return;
    handle(event);
}

bool WorldTruth::isRunning(int process) const { return process && !_world.find(process)->isDead(); }

std::string WorldTruth::nameOf(int process) const { return _world.find(process)->name().toStdString(); }

bool WorldTruth::isThere(const std::string& module) const
{
    const auto* const process = _world.find(module);
    return process && (process->isHanging() || connected().contains(process->id()));
}

/// Nothing waits in the hub.
void WorldTruth::checkWorld()
{
    constexpr std::size_t mostWaiting = 64; // A PING.
    if (!hub) return;
    for (const auto& worker : hub->workers()) {
        if (worker.bytesWaiting > mostWaiting)
            violated(fmt::format("{} bytes wait for worker {}", worker.bytesWaiting, worker.info));
    }
    if (ipc::HubInspection(*hub).waiterCount() > 0) violated("look-ups wait in the registry");
    checkCounts();
    checkRegistry();
}

/// It counts what living holders hold of living owners, and nothing else.
void WorldTruth::checkCounts()
{
    const ipc::HubInspection counts(*hub);
    const auto mistaken = mistakenReferences();
    for (const auto& [object, workers] : holders()) {
        std::set<int> receivers;
        for (const auto& receiver : counts.holders(object)) receivers.insert(receiver.workerId);
        if (!std::ranges::includes(receivers, workers) || receivers.size() > workers.size() + mistaken)
            violated(fmt::format(
                "object {} is counted for {} workers, {} hold it", object, receivers.size(), workers.size()));
    }
    const auto expected = countedObjects();
    if (counts.objectCount() < expected || counts.objectCount() > expected + mistaken)
        violated(fmt::format("{} objects are counted, {} are held", counts.objectCount(), expected));
}

/// The registry knows the objects of the living, and gives them in their order.
void WorldTruth::checkRegistry()
{
    auto expected = registrations();
    std::multiset<Registered> found;
    int previous = INT_MAX;
    for (const auto& registration : ipc::HubInspection(*hub).registrations(0, SIZE_MAX)) {
        if (ipc::ownerOf(registration.objectId) == 0) continue; // The relay of the bus.
        if (registration.priority > previous) violated("registrations are not in their order");
        previous = registration.priority;
        found.emplace(registration.objectId, registration.priority, registration.hidden);
    }
    if (modulesEndIdle ? found.size() != expected.size() : found != expected) // Who ends idle hides them, too.
        violated(fmt::format(
            "{} registrations are kept, {} were made, or others are hidden", found.size(), expected.size()));
}

} // namespace simulated
