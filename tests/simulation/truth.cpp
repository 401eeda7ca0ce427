#include "truth.h"
#include <algorithm>
#include <cstdio>

namespace simulated {

Truth::~Truth() = default;

void Truth::print(const std::string& line)
{
    fmt::print("{:11.6f} s  {}\n", now().totalSeconds(), line);
    std::fflush(stdout); // The next line may be the last one.
}

std::string Truth::speaker() const
{
    return _speaker ? fmt::format("{} ({})", nameOf(_speaker), _speaker) : "the world";
}

void Truth::violated(std::string what)
{
    if (_speaker && !isRunning(_speaker)) return;
    tell("VIOLATED: {}", what);
    _violations.push_back(std::move(what));
}

bool Truth::isAlive(int process) const { return process && isRunning(process) && !_leaving.contains(process); }

void Truth::forget(int process)
{
    std::erase_if(_references, [&](const auto& entry) { return entry.second.holder == process; });
    for (auto& freeze : _freezes) {
        if (freeze.process == process) freeze.end = std::min(freeze.end, now());
    }
}

void Truth::excuseFreezes()
{
    for (auto& freeze : _freezes) freeze.begin = std::max(freeze.begin, now());
}

void Truth::handle(const Event& event)
{
    _speaker = event.process;
    if (event.deed <= Deed::Registers)
        handleObject(event);
    else if (event.deed <= Deed::EndsReference)
        handleReference(event);
    else if (event.deed <= Deed::HasFailure)
        handleCall(event);
    else if (event.deed <= Deed::FindsNothing)
        handleLookUp(event);
    else
        handleOther(event);
    _speaker = 0;
}

// --- Objects

void Truth::handleObject(const Event& event)
{
    switch (event.deed) {
    case Deed::Connects:
        tell("is connected as worker {}", event.number);
        _connected.emplace(event.process, Connected { now(), event.number });
        _supervised[nameOf(event.process)].wasConnected = true;
        return;
    case Deed::Leaves: return leaves(event);
    case Deed::IsToldToQuit:
        tell("is told to quit");
        _toldToQuit.insert(event.process);
        return;
    case Deed::MakesThing:
        tell("makes thing {}", event.number);
        _things[event.number] = { .owner = event.process, .objectId = event.object, .isAlive = true };
        _latest[event.object] = event.number;
        return;
    case Deed::EndsThing: return ends(event.number);
    case Deed::HoldsThing: _things[event.number].holds += event.other; return;
    case Deed::SendsThing: ++_things[event.number].sends; return;
    case Deed::Registers:
        tell("registers thing {} with priority {}", event.number, event.other);
        _things[event.number].registrations.push_back({ event.other });
        _registered[_things[event.number].owner].insert(event.number);
        return;
    case Deed::HasRegistered:
        if (auto& since = _things[event.number].registeredSince; !since) since = now();
        return;
    case Deed::Broadcasts:
        _things[event.number].events = event.value;
        _things[event.number].lastEvent = now();
        return;
    default: return hides(event);
    }
}

void Truth::leaves(const Event& event)
{
    const bool isNews = _leaving.insert(event.process).second;
    if (!isNews) return;
    tell("ends itself");
    _supervised[nameOf(event.process)].harms.emplace("ends itself");
    if (!event.flag || isEnding || isHubDead() || _toldToQuit.contains(event.process)) return;
    for (const auto& [number, thing] : _things) {
        if (thing.owner == event.process && thing.registrations.empty() && isReferred(number, true))
            violated(fmt::format("{} ends though thing {} is held", nameOf(event.process), number));
    }
}

void Truth::hides(const Event& event)
{
    if (event.deed == Deed::Hides) {
        tell("{} what it has registered", event.flag ? "hides" : "shows");
        _hidings[event.process].request = event.number;
    }
    auto& hiding = _hidings[event.process];
    hiding.isShown = event.deed == Deed::HasHidden && hiding.request == event.number && !event.flag;
    hiding.since = now();
    for (const int number : _registered[event.process]) {
        for (auto& registration : _things[number].registrations) {
            if (event.deed == Deed::Hides)
                registration = { registration.priority, event.flag, event.number };
            else if (registration.hide == event.number && registration.isHidden)
                registration.hiddenSince = now();
        }
    }
}

/// It is the worker that has got the id of `owner`, which is dead.
bool Truth::succeeds(int process, int owner) const
{
    const auto first = _connected.find(owner);
    const auto second = _connected.find(process);
    return first != _connected.end() && second != _connected.end() && first->second.worker == second->second.worker
        && first->second.since < second->second.since;
}

/// Its owner is dead, and its id may be that of a later worker's object. A message about it that was under way meanwhile is mistaken
/// for one about that.
bool Truth::isUsedAgain(const Thing& thing) const
{
    const bool wasAnyStopped = !_freezes.empty() || longestSilence > shortSilence;
    const auto longest = wasAnyStopped ? fn::Duration::seconds(15) : fn::Duration::milliseconds(500);
    return !isAlive(thing.owner) && std::ranges::any_of(_connected, [&](const auto& other) {
        return succeeds(other.first, thing.owner) && other.second.since + longest > now();
    });
}

/// It has heard of a living worker that has got the id of `owner`: before that it was told so.
bool Truth::knowsSuccessor(int process, int owner) const
{
    return process != mainProcess() && std::ranges::any_of(_heard, [&](const auto& heard) {
        const auto [listener, publisher, channel] = heard.first;
        return listener == process && isAlive(publisher) && succeeds(publisher, owner);
    });
}

void Truth::ends(int thing)
{
    tell("thing {} ends", thing);
    auto& ended = _things[thing];
    if (isAlive(ended.owner) && !isEnding && !isHubDead() && isReferred(thing, true))
        violated(fmt::format("thing {} ended though somebody holds a reference", thing));
    ended.isAlive = false;
}

bool Truth::isReferred(int thing, bool elsewhere) const
{
    return std::ranges::any_of(_references, [&](const auto& entry) {
        const auto& reference = entry.second;
        return reference.thing == thing && isAlive(reference.holder)
            && !(elsewhere && (reference.isLocal || reference.isDead || reference.isMistaken));
    });
}

void Truth::handleReference(const Event& event)
{
    if (event.deed == Deed::MakesReference) {
        const int known = _latest.at(event.object);
        _references.insert_or_assign(event.number,
            Reference { .holder = event.process,
                .objectId = event.object,
                .isLocal = event.flag,
                .thing = known,
                .isMistaken = isUsedAgain(_things[known]),
                .since = now() });
        return;
    }
    const auto found = _references.find(event.number);
    if (found == _references.end()) return;
    auto& reference = found->second;
    switch (event.deed) {
    case Deed::Recognizes: {
        const auto& other = _things[event.other];
        if (event.other != reference.thing && (reference.objectId != other.objectId || !isUsedAgain(other)))
            violated("a reference stands for two objects");
        return;
    }
    case Deed::KeepsReference: reference.isKept = true; return;
    case Deed::HearsEvent:
        if (event.value <= std::exchange(reference.lastEvent, event.value))
            violated("events of one object came out of order, or twice");
        return;
    case Deed::HearsDeath: return hearsDeath(reference);
    default: _references.erase(found);
    }
}

void Truth::hearsDeath(Reference& reference)
{
    tell("hears that thing {} is dead", reference.thing);
    reference.isDead = true;
    const bool isWrong = isAlive(_things[reference.thing].owner) && !reference.isMistaken;
    if (isWrong && isAlive(reference.holder) && !isHubDead() && !isEnding)
        violated(fmt::format("thing {} was told dead", reference.thing));
}

// --- Calls

void Truth::handleCall(const Event& event)
{
    auto& call = _calls[event.number];
    switch (event.deed) {
    case Deed::Calls: return begins(event, call);
    case Deed::Passes: {
        const auto passed = _references.find(event.other);
        if (passed == _references.end()) return;
        const auto& [number, thing] = *_things.find(passed->second.thing);
        tell("passes on thing {}", number);
        if (thing.owner == event.process) ++_things[number].sends;
        call.bringsNothing = passed->second.isDead && knowsSuccessor(event.process, thing.owner);
        return;
    }
    case Deed::GetsCall:
        tell("gets call {}", event.number);
        if (std::exchange(call.hasArrived, true)) violated(fmt::format("call {} arrived twice", event.number));
        if (call.bringsNothing && event.flag && event.process != call.caller)
            violated("an object that is gone for good was sent");
        if (call.thing && event.other != call.thing && !call.isMistaken && !isUsedAgain(_things[call.thing]))
            violated(fmt::format("call {} arrived at thing {}", event.number, event.other));
        call.owner = event.process;
        return;
    case Deed::LetsFail: call.mayFail = true; return;
    case Deed::GetsCancel: call.hasCancelArrived = true; return;
    case Deed::Cancels:
        tell("cancels call {}", event.number);
        call.isCancelled = true;
        return;
    default:
        if (std::exchange(call.isOver, true)) violated(fmt::format("call {} ended twice", event.number));
        if (call.isCancelled) violated(fmt::format("call {} ended after it was cancelled", event.number));
        event.deed == Deed::HasResult ? hasResult(event, call) : hasFailure(event, call);
    }
}

void Truth::begins(const Event& event, Call& call)
{
    const auto found = _references.find(event.other);
    if (found == _references.end()) return; // Its holder is being killed: nothing is asked of its calls.
    const auto& reference = found->second;
    tell("makes call {} ({}) on thing {}", event.number, event.value, reference.thing);
    call = { .ask = static_cast<Ask>(event.value),
        .caller = event.process,
        .owner = _things[reference.thing].owner,
        .thing = reference.thing,
        .reference = event.other,
        .isMistaken = reference.isMistaken };
}

void Truth::hasResult(const Event& event, const Call& call)
{
    ++_answers;
    tell("has the answer of call {}", event.number);
    const bool mayHaveResult =
        call.ask != Ask::Never && call.ask != Ask::Throw && call.ask != Ask::Error && call.ask != Ask::Unencodable;
    const bool isRight = call.ask == Ask::Give ? event.flag : event.value == event.number;
    if (!isRight || !mayHaveResult || !call.hasArrived)
        violated(fmt::format("call {} has a wrong result", event.number));
}

void Truth::hasFailure(const Event& event, const Call& call)
{
    tell("call {} fails: {}", event.number, event.text);
    if (call.ask == Ask::Unencodable && call.hasArrived) return;
    const bool shouldFail = call.ask == Ask::Throw || call.ask == Ask::Error;
    if (shouldFail && event.text == fmt::format("RuntimeException: call {}", event.number)) return;
    const bool bringsObject = call.ask == Ask::Give || call.ask == Ask::Keep || call.ask == Ask::CallBack;
    if (bringsObject && event.text == "RuntimeException: broken on purpose") return;
    if (event.flag && (isEnding || call.mayFail || !isAlive(call.owner) || !isAlive(call.caller) || isHubDead()))
        return;
    violated(fmt::format("call {} failed: {}", event.number, event.text));
}

// --- Look-ups

void Truth::handleLookUp(const Event& event)
{
    auto& known = _lookUps[event.number];
    if (event.deed == Deed::LooksUp) {
        known = { event.process, now(), fn::Duration::milliseconds(event.value) };
        return;
    }
    if (std::exchange(known.isOver, true)) violated("a look-up ended twice");
    if (event.deed == Deed::FindsNothing) return findsNothing(known, std::string(event.text));
    const auto found = _references.find(event.other);
    if (found != _references.end() && !found->second.isMistaken) finds(known, _things[found->second.thing]);
}

/// What it has registered, all the time.
bool Truth::isShown(int owner, fn::Duration since) const
{
    const auto found = _hidings.find(owner);
    return found == _hidings.end() || (found->second.isShown && found->second.since <= since);
}

void Truth::finds(const LookUp& lookUp, const Thing& found)
{
    if (found.registrations.empty()) return violated("what was found is not registered");
    const auto isHidden = [&](const Registration& registration) {
        return registration.hiddenSince && *registration.hiddenSince < lookUp.begin;
    };
    if (!modulesEndIdle && std::ranges::all_of(found.registrations, isHidden)) violated("what was found is hidden");
    const auto isProof = [](const Registration& registration) { return registration.priority == proofPriority; };
    const bool isWanted = proofTime && lookUp.begin > *proofTime;
    if (isWanted && std::ranges::none_of(found.registrations, isProof))
        violated("what was found is not of the highest priority");
}

void Truth::findsNothing(const LookUp& lookUp, const std::string& text)
{
    tell("finds nothing: {}", text);
    if (isEnding || isHubDead() || !isAlive(lookUp.caller)) return;
    if (text.find("broken on purpose") != std::string::npos) return;
    if (text.find("is not available") == std::string::npos) violated(fmt::format("a look-up failed: {}", text));
    if (now() - lookUp.begin < lookUp.bound) violated("a look-up failed before its time-out");
    for (const auto& [owner, numbers] : _registered) {
        if (!isAlive(owner) || modulesEndIdle || !isShown(owner, lookUp.begin)) continue;
        for (const int number : numbers) {
            if (const auto since = _things[number].registeredSince; since && *since <= lookUp.begin)
                violated(fmt::format("thing {} was not found", number));
        }
    }
}

// --- The bus, faults, the supervisor, the log

void Truth::handleOther(const Event& event)
{
    const std::string text(event.text);
    switch (event.deed) {
    case Deed::Hears:
        if (event.value <= std::exchange(_heard[{ event.process, event.other, event.number }], event.value))
            violated(fmt::format("a message of process {} came out of order on the bus, or twice", event.other));
        return;
    case Deed::Posts: _posts[{ event.number, event.process }] = { event.process, event.value, now() }; return;
    case Deed::KeepsBody: _bodies[event.process] = { event.other, event.value }; return;
    case Deed::Proves: _proved.insert(event.process); return;
    case Deed::Logs:
        tell("logs at {}: {}", event.number, text);
        if (text.starts_with("ipc.moduleManager: Module ") || text.starts_with("ipc.moduleManager: Launching"))
            supervises(text);
        if (event.number <= 2 && !isExplained(text)) violated(fmt::format("a line without a reason: {}", text));
        return;
    case Deed::Violates: return violated(text);
    case Deed::GivesUp:
        tell("gives up: {}", text);
        _givenUp.insert(text);
        for (auto& [name, module] : _supervised) module.isGivenUp |= text.find(name) != std::string::npos;
        if (!isExplained(text)) violated(fmt::format("gave up without a reason: {}", text));
        return;
    case Deed::FindsSilent:
        tell("{} does not respond", text);
        _silences[text].push_back(now());
        if (!isExplained(fmt::format("Module {} stopped responding", text)))
            violated(fmt::format("{} was said not to respond without a reason", text));
        return;
    case Deed::IsHarmed: return isHarmed(event, text);
    default: return;
    }
}

void Truth::isHarmed(const Event& event, const std::string& name)
{
    _supervised[name].harms.emplace(event.how);
    if (event.how == "has no memory") _leaving.insert(event.number); // It loses its connection, and ends.
    const auto time = fn::Duration::milliseconds(event.value);
    tell("{} {}{}", name, event.how, event.value > 0 ? fmt::format(" for {} ms", event.value) : "");
    if (event.value > 0) _freezes.push_back({ event.number, name, now(), now() + time });
}

} // namespace simulated
