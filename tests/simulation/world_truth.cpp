#include "world_truth.h"
#include "core/ipc/registry_impl.h"
#include <algorithm>
#include <climits>

namespace simulated {

void WorldTruth::rest()
{
    constexpr auto untilProof = fn::Duration::seconds(38); // Longer than any launch, look-up, freeze or answer takes.
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
    if (event.deed == Deed::Logs && event.text.starts_with("ipc.moduleManager: Launching module"))
        checkLaunch(event.text);
}

bool WorldTruth::isRunning(int process) const { return process && !_world.find(process)->isDead(); }

std::string WorldTruth::nameOf(int process) const { return _world.find(process)->name().toStdString(); }

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
void WorldTruth::checkLaunch(std::string_view line)
{
    if (_hasStopped) violated("a module is launched though the application ends");
    const auto begin = line.find(moduleName);
    if (begin == std::string::npos) return;
    const std::string name(line.substr(begin, line.find(' ', begin) - begin));
    if (++_launches[name] > 1 + harms[name].size())
        violated(fmt::format("{} is launched again without a reason", name));
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
    if (hub->registryImpl()->waiterCount() > 0) violated("look-ups wait in the registry");
    checkCounts();
    checkRegistry();
}

/// It counts what living holders hold of living owners, and nothing else.
void WorldTruth::checkCounts()
{
    const auto& counts = hub->usageCounts();
    const auto mistaken = mistakenReferences();
    for (const auto& [object, workers] : holders()) {
        std::set<int> receivers;
        for (const auto& receiver : counts.receivers(object)) receivers.insert(receiver.workerId);
        if (mistaken > 0 ? !std::ranges::includes(receivers, workers) : receivers != workers)
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

} // namespace simulated
