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

Truth::Thing& Truth::thing(int number)
{
    const auto index = static_cast<std::size_t>(number);
    if (_things.size() <= index) _things.resize(index + 1);
    return _things[index];
}

void Truth::handleObject(const Event& event)
{
    switch (event.deed) {
    case Deed::Connects:
        tell("is connected as worker {}", event.number);
        _connected.emplace(event.process, Connected { now(), event.number });
        return;
    case Deed::Leaves: return leaves(event);
    case Deed::IsToldToQuit:
        tell("is told to quit");
        _toldToQuit.insert(event.process);
        return;
    case Deed::MakesThing:
        tell("makes thing {}", event.number);
        thing(event.number) = {};
        thing(event.number).owner = event.process;
        thing(event.number).objectId = event.object;
        thing(event.number).isAlive = true;
        _latest[event.object] = event.number;
        return;
    case Deed::EndsThing: return endsThing(event.number);
    case Deed::HoldsThing: thing(event.number).holds += event.other; return;
    case Deed::SendsThing: ++thing(event.number).sends; return;
    case Deed::Registers:
        tell("registers thing {} with priority {}", event.number, event.other);
        thing(event.number).registrations.push_back({ event.other });
        return;
    case Deed::HasRegistered: thing(event.number).isRegistered = true; return;
    case Deed::Hides:
    case Deed::HasHidden: return hides(event);
    case Deed::Broadcasts:
        thing(event.number).events = event.value;
        thing(event.number).lastEvent = now();
        return;
    default: return;
    }
}

void Truth::leaves(const Event& event)
{
    const bool isNews = _leaving.insert(event.process).second;
    if (!isNews) return;
    tell("ends itself");
    harms[nameOf(event.process)].insert("ends itself");
    if (!event.flag || isEnding || isHubDead() || _toldToQuit.contains(event.process)) return;
    for (const auto& [id, reference] : _references) {
        const auto& held = thing(reference.thing);
        if (held.owner == event.process && isAlive(reference.holder) && !reference.isDead && !reference.isMistaken
            && held.registrations.empty())
            violated(fmt::format("{} ends though thing {} is held", nameOf(event.process), reference.thing));
    }
}

void Truth::hides(const Event& event)
{
    if (event.deed == Deed::Hides) {
        tell("{} what it has registered", event.flag ? "hides" : "shows");
        if (event.flag) _hiders.insert(event.process);
    }
    for (auto& thing : _things) {
        if (thing.owner != event.process) continue;
        for (auto& registration : thing.registrations) {
            if (event.deed == Deed::Hides)
                registration = { registration.priority, event.flag, event.number };
            else if (registration.hide == event.number && registration.isHidden)
                registration.hiddenSince = now();
        }
    }
}

/// Its owner is dead, and its id may be that of a later worker's object. A message about it that was under way meanwhile is mistaken
/// for one about that.
bool Truth::isUsedAgain(const Thing& thing) const
{
    const bool wasAnyStopped = !_freezes.empty() || longestSilence > shortSilence;
    const auto longest = wasAnyStopped ? fn::Duration::seconds(15) : fn::Duration::milliseconds(500);
    const auto owner = _connected.find(thing.owner);
    return owner != _connected.end() && !isAlive(thing.owner)
        && std::ranges::any_of(_connected, [&](const auto& other) {
               return other.second.worker == owner->second.worker && other.second.since > owner->second.since
                   && other.second.since + longest > now();
           });
}

void Truth::endsThing(int number)
{
    tell("thing {} ends", number);
    auto& ended = thing(number);
    ended.isAlive = false;
    if (isEnding || !isAlive(ended.owner) || isHubDead()) return;
    for (const auto& [id, reference] : _references) {
        if (reference.thing == number && isAlive(reference.holder) && !reference.isDead && !reference.isLocal)
            violated(fmt::format("thing {} ended though {} holds a reference", number, nameOf(reference.holder)));
    }
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
                .isMistaken = isUsedAgain(thing(known)),
                .since = now() });
        return;
    }
    const auto found = _references.find(event.number);
    if (found == _references.end()) return;
    if (event.deed == Deed::EndsReference) _references.erase(found);
    if (event.deed == Deed::Recognizes && event.other != found->second.thing
        && (found->second.objectId != thing(event.other).objectId || !isUsedAgain(thing(event.other))))
        violated("a reference stands for two objects");
    if (event.deed == Deed::KeepsReference) found->second.isKept = true;
    if (event.deed == Deed::HearsEvent && event.value <= std::exchange(found->second.lastEvent, event.value))
        violated("events of one object came out of order, or twice");
    if (event.deed == Deed::HearsDeath) {
        found->second.isDead = true;
        hearsDeath(found->second);
    }
}

void Truth::hearsDeath(const Reference& reference)
{
    tell("hears that thing {} is dead", reference.thing);
    const bool isWrong = isAlive(thing(reference.thing).owner) && !reference.isMistaken;
    if (isWrong && isAlive(reference.holder) && !isHubDead() && !isEnding)
        violated(fmt::format("thing {} was told dead", reference.thing));
}

// --- Calls

Truth::Call& Truth::call(int number)
{
    const auto index = static_cast<std::size_t>(number);
    if (_calls.size() <= index) _calls.resize(index + 1);
    return _calls[index];
}

void Truth::handleCall(const Event& event)
{
    auto& known = call(event.number);
    switch (event.deed) {
    case Deed::Calls: return begins(event);
    case Deed::GetsCall:
        tell("gets call {}", event.number);
        if (std::exchange(known.hasArrived, true)) violated(fmt::format("call {} arrived twice", event.number));
        known.owner = event.process;
        return;
    case Deed::GetsCancel: known.hasCancelArrived = true; return;
    case Deed::Cancels:
        tell("cancels call {}", event.number);
        known.isCancelled = true;
        return;
    case Deed::HasResult: return hasResult(event);
    case Deed::HasFailure: return hasFailure(event);
    default: return;
    }
}

void Truth::begins(const Event& event)
{
    const auto found = _references.find(event.other);
    if (found == _references.end()) return; // Its holder is being killed: nothing is asked of its calls.
    const auto& reference = found->second;
    tell("makes call {} ({}) on thing {}", event.number, event.value, reference.thing);
    call(event.number) = { .ask = static_cast<Ask>(event.value),
        .caller = event.process,
        .owner = thing(reference.thing).owner,
        .reference = event.other,
        .isMistaken = reference.isMistaken };
}

void Truth::ends(Call& call, int number)
{
    if (std::exchange(call.isOver, true)) violated(fmt::format("call {} ended twice", number));
    if (call.isCancelled) violated(fmt::format("call {} ended after it was cancelled", number));
}

void Truth::hasResult(const Event& event)
{
    ++_answers;
    tell("has the answer of call {}", event.number);
    auto& known = call(event.number);
    ends(known, event.number);
    const bool mayHaveResult = known.ask != Ask::Never && known.ask != Ask::Throw && known.ask != Ask::Error
        && known.ask != Ask::Unencodable && (known.ask != Ask::Break || known.owner == known.caller);
    const auto shape = static_cast<Shape>(event.other);
    const bool isRight = known.ask == Ask::Give
        ? shape == Shape::Map || shape == Shape::Nil
        : known.ask == Ask::Break || (shape == Shape::Number && event.value == event.number);
    if (!isRight || !mayHaveResult || !known.hasArrived)
        violated(fmt::format("call {} has a wrong result", event.number));
}

void Truth::hasFailure(const Event& event)
{
    tell("call {} fails: {}", event.number, event.text);
    auto& known = call(event.number);
    ends(known, event.number);
    if (known.ask == Ask::Unencodable && known.hasArrived) return;
    const bool shouldFail = known.ask == Ask::Throw || known.ask == Ask::Error;
    if (shouldFail && event.text == fmt::format("RuntimeException: call {}", event.number)) return;
    if (known.ask == Ask::Break && event.text == "RuntimeException: broken on purpose") return;
    // Asked to call somebody else, who may have died.
    const bool asksOthers = known.ask == Ask::Relay || known.ask == Ask::CallBack;
    if (event.flag && (isEnding || asksOthers || !isAlive(known.owner) || !isAlive(known.caller) || isHubDead()))
        return;
    violated(fmt::format("call {} failed: {}", event.number, event.text));
}

// --- Look-ups

void Truth::handleLookUp(const Event& event)
{
    auto& known = _lookUps[event.number];
    if (event.deed == Deed::LooksUp) return looksUp(event);
    if (std::exchange(known.isOver, true)) violated("a look-up ended twice");
    if (event.deed == Deed::FindsNothing) return findsNothing(known, std::string(event.text));
    const auto found = _references.find(event.other);
    if (found != _references.end() && !found->second.isMistaken) finds(known, thing(found->second.thing));
}

void Truth::looksUp(const Event& event)
{
    auto& lookUp = _lookUps[event.number] = {
        .caller = event.process, .begin = now(), .bound = fn::Duration::milliseconds(event.value), .things = {}
    };
    for (std::size_t number = 0; number < _things.size(); ++number) {
        const auto& thing = _things[number];
        if (thing.isRegistered && isAlive(thing.owner) && !modulesEndIdle && !_hiders.contains(thing.owner))
            lookUp.things.push_back(static_cast<int>(number));
    }
}

void Truth::finds(const LookUp& lookUp, const Thing& found)
{
    if (found.registrations.empty()) return violated("what was found is not registered");
    const auto isHidden = [&](const Registration& registration) {
        return registration.hiddenSince && *registration.hiddenSince < lookUp.begin;
    };
    if (std::ranges::all_of(found.registrations, isHidden)) violated("what was found is hidden");
    const auto isProof = [](const Registration& registration) { return registration.priority == proofPriority; };
    const bool isWanted = proofTime && lookUp.begin > *proofTime;
    if (isWanted && std::ranges::none_of(found.registrations, isProof))
        violated("what was found is not of the highest priority");
}

void Truth::findsNothing(const LookUp& lookUp, const std::string& text)
{
    tell("finds nothing: {}", text);
    if (isEnding || isHubDead() || !isAlive(lookUp.caller)) return;
    if (text.find("is not available") == std::string::npos) violated(fmt::format("a look-up failed: {}", text));
    if (now() - lookUp.begin < lookUp.bound) violated("a look-up failed before its time-out");
    for (const int number : lookUp.things) {
        const int owner = thing(number).owner;
        if (isAlive(owner) && !_hiders.contains(owner)) violated(fmt::format("thing {} was not found", number));
    }
}

// --- The bus, faults, the supervisor, the log

void Truth::handleOther(const Event& event)
{
    const std::string text(event.text);
    switch (event.deed) {
    case Deed::Hears: return hears(event);
    case Deed::Posts: _posts[{ event.number, event.process }] = { event.value, now() }; return;
    case Deed::Proves: _proved.insert(event.process); return;
    case Deed::Logs:
        tell("logs at {}: {}", event.number, text);
        if (text.starts_with("ipc.moduleManager: Launching module")) checkLaunch(text);
        if (event.number <= 2 && !isExplained(text)) violated(fmt::format("a line without a reason: {}", text));
        return;
    case Deed::Violates: return violated(text);
    case Deed::GivesUp: return givesUp(text);
    case Deed::FindsSilent:
        tell("{} does not respond", text);
        _silences[text].push_back(now());
        if (!isExplained(fmt::format("Module {} stopped responding", text)))
            violated(fmt::format("{} was said not to respond without a reason", text));
        return;
    case Deed::IsHarmed: return isHarmed(event);
    case Deed::Rests: return tell("all rest");
    default: return;
    }
}

void Truth::hears(const Event& event)
{
    auto& previous = _heard[{ event.process, { event.other, event.number } }];
    if (event.value <= previous)
        violated(fmt::format("a message of process {} came out of order on the bus, or twice", event.other));
    previous = event.value;
}

void Truth::isHarmed(const Event& event)
{
    const std::string name(event.text);
    harms[name].emplace(event.how);
    if (event.how == "has no memory") _leaving.insert(event.number); // It loses its connection, and ends.
    const auto time = fn::Duration::milliseconds(event.value);
    tell("{} {}{}", name, event.how, event.value > 0 ? fmt::format(" for {} ms", event.value) : "");
    if (event.value > 0) _freezes.push_back({ event.number, name, now(), now() + time });
}

void Truth::givesUp(const std::string& message)
{
    tell("gives up: {}", message);
    _givenUp.insert(message);
    if (!isExplained(message)) violated(fmt::format("gave up without a reason: {}", message));
}

bool Truth::hasHarmed(const std::string& text, const std::set<std::string>& how) const
{
    return std::ranges::any_of(harms, [&](const auto& harm) {
        return text.find(harm.first) != std::string::npos
            && (how.empty() || std::ranges::any_of(harm.second, [&](const auto& each) { return how.contains(each); }));
    });
}

/// What is said of a module that was harmed is explained by that, if it names it.
bool Truth::isExplained(const std::string& text) const { return isExcused(text) || hasHarmed(text, {}); }

bool Truth::isExcused(const std::string& text) const
{
    if (text.find("on purpose") != std::string::npos) return true;
    if (!_givenUp.empty() && text == "ipc.moduleManager: Aborting launch") return true;
    return isHubDead() && text.find("connect to ") != std::string::npos;
}

} // namespace simulated
