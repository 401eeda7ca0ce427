#include "truth.h"
#include <algorithm>

// What the truth asks when nothing goes on any more.

namespace simulated {

void Truth::checkAtRest()
{
    checkCalls();
    checkReferences();
    checkFreezes();
    if (isHubDead()) return;
    checkLookUps();
    checkProofs();
    checkBus();
    checkThings();
    checkModules();
    checkWorld();
    if (modulesEndIdle) checkIdle();
}

void Truth::checkCalls()
{
    for (std::size_t number = 0; number < _calls.size(); ++number) {
        const auto& call = _calls[number];
        if (isOpen(call)) violated(fmt::format("call {} never ended", number));
        const bool isHeard = isAlive(call.caller) && isAlive(call.owner) && !isHubDead();
        if (isHeard && call.isCancelled && call.hasArrived && !call.hasCancelArrived)
            violated(fmt::format("the cancel of call {} never arrived", number));
    }
}

bool Truth::isOpen(const Call& call) const
{
    if (call.isOver || call.isCancelled || call.isMistaken || !isAlive(call.caller)) return false;
    return call.ask != Ask::Never || !isAlive(call.owner) || isHubDead();
}

std::size_t Truth::openCalls() const
{
    return static_cast<std::size_t>(std::ranges::count_if(_calls, [&](const Call& call) { return isOpen(call); }));
}

std::vector<int> Truth::openCallsTo(int process) const
{
    std::vector<int> calls;
    for (std::size_t number = 0; number < _calls.size(); ++number) {
        if (_calls[number].owner == process && isOpen(_calls[number])) calls.push_back(static_cast<int>(number));
    }
    return calls;
}

void Truth::checkReferences()
{
    for (const auto& [id, reference] : _references) {
        if (!isAlive(reference.holder) || reference.isMistaken) continue;
        const auto& [owner, events, lastEvent] =
            std::tie(thing(reference.thing).owner, thing(reference.thing).events, thing(reference.thing).lastEvent);
        if (!reference.isDead && reference.since < lastEvent && reference.lastEvent != events) {
            violated(fmt::format("{} has heard event {} of thing {}, which has sent {}", nameOf(reference.holder),
                reference.lastEvent, reference.thing, events));
        }
        const bool shouldBeDead = !isAlive(owner) || (isHubDead() && owner != reference.holder);
        if (reference.isDead != shouldBeDead) {
            violated(fmt::format("{}'s reference to thing {} is {}", nameOf(reference.holder), reference.thing,
                shouldBeDead ? "alive though its owner is dead" : "dead though its owner is alive"));
        }
        const auto isOfThis = [&](const Call& call) {
            return call.reference == id && !call.isOver && !call.isCancelled;
        };
        if (_proved.contains(reference.holder) && !reference.isLocal && !reference.isKept
            && std::ranges::none_of(_calls, isOfThis)) {
            violated(fmt::format(
                "{}'s reference to thing {} lives though nobody holds it", nameOf(reference.holder), reference.thing));
        }
    }
}

bool Truth::isReferred(const Thing& thing, bool elsewhere) const
{
    return std::ranges::any_of(_references, [&](const auto& entry) {
        const auto& reference = entry.second;
        return isAlive(reference.holder) && &_things[static_cast<std::size_t>(reference.thing)] == &thing
            && !(elsewhere && reference.isLocal);
    });
}

void Truth::checkThings()
{
    for (std::size_t number = 0; number < _things.size(); ++number) {
        const auto& thing = _things[number];
        if (!thing.isAlive || !isAlive(thing.owner)) continue;
        if (thing.registrations.empty() && thing.holds == 0 && !isReferred(thing, false))
            violated(fmt::format("thing {} of {} lives though nobody holds it", number, nameOf(thing.owner)));
    }
}

std::map<ipc::ObjectId, std::set<int>> Truth::heldObjects() const
{
    std::map<ipc::ObjectId, std::set<int>> held;
    for (const auto& [id, reference] : _references) {
        if (isAlive(reference.holder) && !reference.isDead && !reference.isLocal && !reference.isMistaken)
            held[reference.objectId].insert(reference.holder);
    }
    return held;
}

std::size_t Truth::countedObjects() const
{
    const auto held = heldObjects();
    const bool isBusUsed = std::ranges::any_of(
        _connected, [&](const auto& entry) { return isAlive(entry.first) && entry.first != mainProcess(); });
    return (isBusUsed ? 1 : 0) // Its relay.
        + static_cast<std::size_t>(std::ranges::count_if(_things, [&](const Thing& thing) {
              return isAlive(thing.owner) && (!thing.registrations.empty() || held.contains(thing.objectId));
          }));
}

std::size_t Truth::mistakenReferences() const
{
    return static_cast<std::size_t>(
        std::ranges::count_if(_references, [](const auto& entry) { return entry.second.isMistaken; }));
}

std::multiset<Truth::Registered> Truth::registrations() const
{
    std::multiset<Registered> all;
    for (const auto& thing : _things) {
        if (!isAlive(thing.owner)) continue;
        for (const auto& registration : thing.registrations)
            all.emplace(thing.objectId, registration.priority, registration.isHidden);
    }
    return all;
}

void Truth::checkLookUps()
{
    for (const auto& [number, lookUp] : _lookUps) {
        if (!lookUp.isOver && isAlive(lookUp.caller)) violated(fmt::format("look-up {} never ended", number));
    }
}

/// Each participant has found an object and called it.
void Truth::checkProofs()
{
    for (const auto& [process, connected] : _connected) {
        if (proofTime && isAlive(process) && connected.since < *proofTime && !_proved.contains(process))
            violated(fmt::format("{} could call nobody", nameOf(process)));
    }
}

/// Who listened when something was posted has heard it.
void Truth::checkBus()
{
    for (const auto& [key, post] : _posts) {
        const auto& [channel, publisher] = key;
        if (!isAlive(publisher)) continue;
        for (const auto& [listener, connected] : _connected) {
            if (!isAlive(listener) || connected.since > post.time) continue;
            if (_heard[{ listener, { publisher, channel } }] != post.number)
                violated(fmt::format("{} has not heard what {} posted", nameOf(listener), nameOf(publisher)));
        }
    }
}

bool Truth::isSupposedToQuit(int process) const
{
    constexpr auto time = fn::Duration::seconds(1);
    const auto connected = _connected.find(process);
    if (connected == _connected.end() || connected->second.since + time > now() || !isAlive(process)) return false;
    const bool isFrozen = std::ranges::any_of(
        _freezes, [&](const Freeze& freeze) { return freeze.process == process && freeze.end + time > now(); });
    return !isFrozen && !_toldToQuit.contains(process);
}

/// Each module runs, unless the supervisor has given it up.
void Truth::checkModules()
{
    for (const auto& module : _modules) {
        const auto isAbout = [&](const std::string& message) {
            return message.find(module.toStdString()) != std::string::npos;
        };
        // A launch that fails ends the launches of those behind it.
        const bool mayBeMissing = std::ranges::any_of(_givenUp, isAbout)
            || std::ranges::any_of(
                _givenUp, [](const auto& message) { return message.find("Failed to start") != std::string::npos; });
        if (!isThere(module) && !mayBeMissing && !modulesEndIdle) violated(fmt::format("{} is not there", module));
    }
}

/// Who was silent for longer than a PING may stay unanswered has been reported.
void Truth::checkFreezes()
{
    for (const auto& [process, name, begin, end] : _freezes) {
        const auto connected = _connected.find(process);
        if (end - begin < longestSilence || connected == _connected.end() || connected->second.since > begin) continue;
        const bool isNoticed =
            std::ranges::any_of(_silences[name], [&](fn::Duration moment) { return moment > begin && moment < end; });
        if (!isNoticed && !isHubDead() && !_leaving.contains(process))
            violated(fmt::format("the silence of {} was not noticed", name));
    }
}

/// What is registered and has been sent besides keeps its owner: nobody tells it whose uses are left.
bool Truth::isNeeded(int owner) const
{
    return std::ranges::any_of(_things, [&](const Thing& thing) {
        if (thing.owner != owner || !thing.isAlive) return false;
        return thing.registrations.empty() ? isReferred(thing, true) : thing.registrations.size() + thing.sends > 1;
    });
}

/// Whom nobody needs has ended.
void Truth::checkIdle()
{
    constexpr auto longest =
        fn::Duration::seconds(1300); // Twice the time until a module counts as idle, and some more.
    for (const auto& [process, connected] : _connected) {
        if (!isAlive(process) || process == mainProcess() || now() - connected.since < longest) continue;
        if (!isNeeded(process)) violated(fmt::format("{} is idle and does not end", nameOf(process)));
    }
}

} // namespace simulated
