#include "truth.h"
#include <algorithm>

// What the truth asks when nothing goes on any more.

namespace simulated {

void Truth::checkAtRest()
{
    checkCalls();
    for (const auto& [number, reference] : _references) {
        if (isAlive(reference.holder) && !reference.isMistaken) checkReference(number, reference);
    }
    checkSupervisor();
    if (isHubDead()) return;
    checkBus();
    checkThings();
    checkWorld();
    if (modulesEndIdle) checkIdle();
}

void Truth::checkCalls()
{
    for (const int call : openCalls()) violated(fmt::format("call {} never ended", call));
    if (isHubDead()) return;
    for (const auto& [number, call] : _calls) {
        const bool isHeard = isAlive(call.caller) && isAlive(call.owner);
        if (isHeard && call.isCancelled && call.hasArrived && !call.hasCancelArrived)
            violated(fmt::format("the cancel of call {} never arrived", number));
    }
    for (const auto& [number, lookUp] : _lookUps) {
        if (!lookUp.isOver && isAlive(lookUp.caller)) violated(fmt::format("look-up {} never ended", number));
    }
}

std::vector<int> Truth::openCalls() const
{
    std::vector<int> calls;
    for (const auto& [number, call] : _calls) {
        const bool mayEnd = call.ask != Ask::Never || !isAlive(call.owner) || isHubDead();
        if (mayEnd && isAlive(call.caller) && !call.isOver && !call.isCancelled && !call.isMistaken)
            calls.push_back(number);
    }
    return calls;
}

void Truth::checkReference(int number, const Reference& reference)
{
    const auto& thing = _things.at(reference.thing);
    const auto wrong = [&](std::string_view how) {
        violated(fmt::format("{}'s reference to thing {} {}", nameOf(reference.holder), reference.thing, how));
    };
    if (!reference.isDead && reference.since < thing.lastEvent && reference.lastEvent != thing.events)
        wrong(fmt::format("has heard event {} of {}", reference.lastEvent, thing.events));
    const bool shouldBeDead = !isAlive(thing.owner) || (isHubDead() && thing.owner != reference.holder);
    if (reference.isDead != shouldBeDead)
        wrong(shouldBeDead ? "is alive though its owner is dead" : "is dead though its owner is alive");
    const auto isOfThis = [&](const auto& call) {
        return call.second.reference == number && !call.second.isOver && !call.second.isCancelled;
    };
    if (_proved.contains(reference.holder) && !reference.isLocal && !reference.isKept
        && std::ranges::none_of(_calls, isOfThis))
        wrong("lives though nobody holds it");
}

void Truth::checkThings()
{
    for (const auto& [number, thing] : _things) {
        if (!thing.isAlive || !isAlive(thing.owner)) continue;
        if (thing.registrations.empty() && thing.holds == 0 && !isReferred(number, false))
            violated(fmt::format("thing {} of {} lives though nobody holds it", number, nameOf(thing.owner)));
    }
}

std::map<ipc::ObjectId, std::set<int>> Truth::holders() const
{
    std::map<ipc::ObjectId, std::set<int>> all;
    for (const auto& [number, thing] : _things) {
        if (isAlive(thing.owner) && !thing.registrations.empty()) all[thing.objectId].insert(0);
    }
    for (const auto& [number, reference] : _references) {
        if (isAlive(reference.holder) && !reference.isDead && !reference.isLocal && !reference.isMistaken)
            all[reference.objectId].insert(_connected.at(reference.holder).worker);
    }
    return all;
}

std::size_t Truth::countedObjects() const
{
    const bool isBusUsed = std::ranges::any_of(
        _connected, [&](const auto& entry) { return isAlive(entry.first) && entry.first != mainProcess(); });
    return holders().size() + (isBusUsed ? 1 : 0); // Its relay.
}

std::size_t Truth::mistakenReferences() const
{
    return static_cast<std::size_t>(
        std::ranges::count_if(_references, [](const auto& entry) { return entry.second.isMistaken; }));
}

std::multiset<Truth::Registered> Truth::registrations() const
{
    std::multiset<Registered> all;
    for (const auto& [number, thing] : _things) {
        if (!isAlive(thing.owner)) continue;
        for (const auto& registration : thing.registrations)
            all.emplace(thing.objectId, registration.priority, registration.isHidden);
    }
    return all;
}

/// Who listened when something was posted has heard it, and each participant has found an object and called it.
void Truth::checkBus()
{
    if (!keepOneBody()) violated("different sticky bodies are kept, or not the newest one");
    for (const auto& [listener, connected] : _connected) {
        if (!isAlive(listener)) continue;
        if (proofTime && connected.since < *proofTime && !_proved.contains(listener))
            violated(fmt::format("{} could call nobody", nameOf(listener)));
        for (const auto& [key, post] : _posts) {
            if (isAlive(post.publisher) && connected.since <= post.time
                && _heard[{ listener, post.publisher, key.first }] != post.number)
                violated(fmt::format("{} has not heard what {} posted", nameOf(listener), nameOf(post.publisher)));
        }
    }
}

bool Truth::keepOneBody() const
{
    std::set<std::pair<int, std::int64_t>> bodies;
    for (const auto& [process, body] : _bodies) {
        if (isAlive(process)) bodies.emplace(body.publisher, body.number);
    }
    // Where nobody is held up, what was posted a second before the last one is older in the hub as well.
    const bool isPrompt = _freezes.empty() && longestSilence == shortSilence;
    const auto isOutdated = [&](const auto& entry) {
        const auto& [channel, publisher] = entry.first;
        if (channel != 0 || !isAlive(publisher) || bodies.empty()) return false;
        const auto& [keptPublisher, kept] = *bodies.begin();
        if (keptPublisher == 0) return true;
        if (keptPublisher == publisher) return kept != entry.second.number;
        const auto other = _posts.find({ 0, keptPublisher });
        return isPrompt && other != _posts.end() && other->second.number == kept
            && other->second.time + fn::Duration::seconds(1) < entry.second.time;
    };
    return bodies.size() <= 1 && std::ranges::none_of(_posts, isOutdated);
}

void Truth::checkQuit()
{
    const auto begin = now() - fn::Duration::seconds(1); // It has had the time to.
    for (const auto& [process, connected] : _connected) {
        const auto isFrozen = [&](const Freeze& freeze) { return freeze.process == process && freeze.end > begin; };
        if (connected.since <= begin && isAlive(process) && !_toldToQuit.contains(process)
            && std::ranges::none_of(_freezes, isFrozen))
            violated(fmt::format("{} is not told to quit", nameOf(process)));
    }
}

/// Whom nobody needs has ended.
void Truth::checkIdle()
{
    constexpr auto longest =
        fn::Duration::seconds(1300); // Twice the time until a module counts as idle, and some more.
    // What is registered and has been sent besides keeps its owner: nobody tells it whose uses are left.
    const auto isNeeded = [&](const auto& entry) {
        const auto& [number, thing] = entry;
        return thing.registrations.empty() ? isReferred(number, true) : thing.registrations.size() + thing.sends > 1;
    };
    for (const auto& [process, connected] : _connected) {
        if (!isAlive(process) || process == mainProcess() || now() - connected.since < longest) continue;
        const auto isTheirs = [&](const auto& entry) { return entry.second.owner == process && entry.second.isAlive; };
        if (std::ranges::none_of(_things, [&](const auto& entry) { return isTheirs(entry) && isNeeded(entry); }))
            violated(fmt::format("{} is idle and does not end", nameOf(process)));
    }
}

} // namespace simulated
