#include "world_truth.h"
#include "core/ipc/registry_impl.h"
#include "foundation/message_bus.h"
#include "foundation/value_map.h"
#include <algorithm>
#include <climits>

namespace simulated {

void WorldTruth::rest()
{
    constexpr auto untilProof = fn::Duration::seconds(38); // Longer than any launch, look-up, freeze or answer takes.
    _isResting = true;
    proofTime = _world.now() + untilProof;
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

/// What is said of a module is explained by what has been done to it.
bool WorldTruth::isExplained(const std::string& text) const
{
    static const std::vector<std::pair<std::string_view, std::set<std::string>>> reasons {
        { "Failed to start", { "is not started" } },
        { "timed out at launch", { "hangs from the start", "is frozen" } },
        { "failed to connect", { "hangs from the start", "is frozen" } },
        { "did exit before connection", { "is killed", "has no memory", "ends itself" } },
        { "has ended unexpectedly", { "is killed" } },
        { "stopped responding", { "is frozen" } },
        { "it does not take the", { "is frozen" } },
    };
    return isExcused(text) || std::ranges::any_of(reasons, [&](const auto& reason) {
        return text.find(reason.first) != std::string::npos && hasHarmed(text, reason.second);
    });
}

/// A module is launched once, and once more for each of its ends.
void WorldTruth::checkLaunch(const std::string& line)
{
    if (_hasStopped) violated("a module is launched though the application ends");
    const auto begin = line.find("simulated_module_");
    if (begin == std::string::npos) return;
    const auto name = line.substr(begin, line.find(' ', begin) - begin);
    if (++_launches[name] > 1 + harms[name].size())
        violated(fmt::format("{} is launched again without a reason", name));
}

void WorldTruth::checkQuit()
{
    for (const auto& [process, connected] : connected()) {
        if (isSupposedToQuit(process)) violated(fmt::format("{} is not told to quit", nameOf(process)));
    }
}

void WorldTruth::checkWorld()
{
    if (!hub) return;
    checkHub();
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
    const auto expected = countedObjects();
    if (counts.objectCount() < expected || counts.objectCount() > expected + mistakenReferences())
        violated(fmt::format("{} objects are counted, {} are held", counts.objectCount(), expected));
}

/// Nothing waits in it, and nothing is kept of the dead.
void WorldTruth::checkHub()
{
    constexpr std::size_t mostWaiting = 64; // A PING.
    std::set<int> living;
    for (const auto& worker : hub->workers()) {
        living.insert(worker.info.workerId);
        if (worker.bytesWaiting > mostWaiting)
            violated(fmt::format("{} bytes wait for worker {}", worker.bytesWaiting, worker.info));
    }
    for (const auto& [process, known] : connected()) {
        if (!living.contains(known.worker)
            && hub->usageCounts().concerned(static_cast<ipc::WorkerId>(known.worker)) > 0)
            violated(fmt::format("the dead worker {} has objects", known.worker));
    }
    if (hub->registryImpl()->waiterCount() > 0) violated("look-ups wait in the registry");
}

/// The registry knows the objects of the living, and gives them in their order.
void WorldTruth::checkRegistry()
{
    auto expected = registrations();
    std::multiset<Registered> found;
    int previous = INT_MAX;
    for (const auto& registration : hub->registryImpl()->registrations(0, SIZE_MAX)) {
        if (ipc::ownerOf(registration.objectId) == 0) continue; // The relay of the bus.
        if (registration.priority > previous) violated("registrations are not in their order");
        previous = registration.priority;
        found.emplace(registration.objectId, registration.priority, registration.hidden);
    }
    if (modulesEndIdle ? found.size() != expected.size() : found != expected) // Who ends idle hides them, too.
        violated(fmt::format(
            "{} registrations are kept, {} were made, or others are hidden", found.size(), expected.size()));
}

/// All that are on the bus keep the same sticky body, the newest of who has posted it.
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
    for (const auto& [key, post] : posts()) {
        if (key.first != 0 || !isAlive(key.second) || bodies.empty()) continue;
        const auto& body = *bodies.begin();
        if (body.isNil()
            || (body.at("publisher") == fn::Value(key.second) && body.at("number") != fn::Value(post.number)))
            violated("the newest sticky body is not kept");
    }
}

} // namespace simulated
