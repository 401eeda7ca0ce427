#include "world_truth.h"
#include "core/ipc/registry_impl.h"
#include "foundation/message_bus.h"
#include <climits>

namespace simulated {

void WorldTruth::rest()
{
    _isResting = true;
    handle({ .deed = Deed::Rests });
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

bool WorldTruth::isRunning(int process) const
{
    return process && !_world.processes()[static_cast<std::size_t>(process) - 1]->isDead(); // Numbered in their order.
}

std::string WorldTruth::nameOf(int process) const
{
    return _world.processes()[static_cast<std::size_t>(process) - 1]->name().toStdString();
}

bool WorldTruth::isThere(const fn::String& module) const
{
    const auto* const process = _world.find(module);
    return process && (process->isHanging() || connected().contains(process->id()));
}

void WorldTruth::checkWorld()
{
    if (!hub) return;
    checkCounts();
    checkRegistry();
    checkStickyBodies();
}

/// The hub counts what living holders hold of living owners, and nothing else.
void WorldTruth::checkCounts()
{
    const auto& counts = hub->usageCounts();
    for (const auto& [objectId, holders] : heldObjects()) {
        if (counts.receivers(objectId).size() < holders.size())
            violated(fmt::format("object {} is counted too rarely", objectId));
    }
    if (counts.objectCount() != countedObjects())
        violated(fmt::format("{} objects are counted, {} are held", counts.objectCount(), countedObjects()));
}

/// The registry knows the objects of the living, and gives them in their order.
void WorldTruth::checkRegistry()
{
    const auto expected = registrations();
    std::multiset<std::pair<ipc::ObjectId, int>> found;
    int previous = INT_MAX;
    for (const auto& registration : hub->registryImpl()->registrations(0, SIZE_MAX)) {
        if (ipc::ownerOf(registration.objectId) == 0) continue; // The relay of the bus.
        if (registration.priority > previous) violated("registrations are not in their order");
        previous = registration.priority;
        found.emplace(registration.objectId, registration.priority);
    }
    if (found != expected)
        violated(fmt::format("{} registrations are kept, {} were made", found.size(), expected.size()));
}

/// All that are on the bus keep the same sticky bodies.
void WorldTruth::checkStickyBodies()
{
    std::set<fn::Value> bodies;
    for (const auto& [id, since] : connected()) {
        if (!isAlive(id)) continue;
        auto* const outer = fn::uv::System::exchangeCurrent(_world.find(id));
        bodies.insert(fn::MessageBus::instance().getStickyMessage("load.0").value_or(fn::Value()));
        fn::uv::System::exchangeCurrent(outer);
    }
    if (bodies.size() > 1) violated(fmt::format("{} different sticky bodies are kept", bodies.size()));
}

} // namespace simulated
