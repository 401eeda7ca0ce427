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
        _connected.emplace(event.process, now());
        return;
    case Deed::Leaves:
        tell("ends itself");
        _leaving.insert(event.process);
        return;
    case Deed::MakesThing:
        tell("makes thing {}", event.number);
        thing(event.number) = { .owner = event.process, .objectId = event.object, .isAlive = true, .priorities = {} };
        return;
    case Deed::EndsThing: return endsThing(event.number);
    case Deed::HoldsThing: thing(event.number).holds += event.other; return;
    case Deed::SendsThing: ++thing(event.number).sends; return;
    case Deed::Registers:
        tell("registers thing {} with priority {}", event.number, event.other);
        thing(event.number).priorities.insert(event.other);
        return;
    default: return;
    }
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
        _references.insert_or_assign(
            event.number, Reference { .holder = event.process, .objectId = event.object, .isLocal = event.flag });
        return;
    }
    const auto found = _references.find(event.number);
    if (found == _references.end()) return;
    if (event.deed == Deed::EndsReference) _references.erase(found);
    if (event.deed == Deed::Recognizes) found->second.thing = event.other;
    if (event.deed == Deed::HearsDeath) {
        found->second.isDead = true;
        hearsDeath(found->second);
    }
}

void Truth::hearsDeath(const Reference& reference)
{
    if (reference.thing < 0) return;
    tell("hears that thing {} is dead", reference.thing);
    if (isAlive(thing(reference.thing).owner) && isAlive(reference.holder) && !isHubDead() && !isEnding)
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
    tell("makes call {} ({}) on thing {}", event.number, event.value, event.other);
    call(event.number) = { .ask = static_cast<Ask>(event.value),
        .caller = event.process,
        .owner = event.other < 0 ? 0 : thing(event.other).owner };
}

/// Request ids begin anew with each reference: where one is dropped after a cancel and another one to the same object is made, the
/// late answer to the cancelled call ends the call that has its number now.
bool Truth::isLateAnswer(const Call& call, const Event& answer) const
{
    return std::ranges::any_of(_calls, [&](const Call& earlier) {
        if (&earlier == &call || !earlier.isCancelled || earlier.caller != call.caller) return false;
        if (answer.deed == Deed::HasResult && static_cast<Shape>(answer.other) != Shape::Number)
            return static_cast<Shape>(answer.other) == Shape::Map && earlier.ask == Ask::Give;
        const auto number = static_cast<int>(&earlier - _calls.data());
        return answer.deed == Deed::HasResult ? answer.value == number
                                              : answer.text == fmt::format("RuntimeException: call {}", number);
    });
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
    const bool mayHaveResult =
        known.ask != Ask::Never && known.ask != Ask::Throw && known.ask != Ask::Error && known.ask != Ask::Unencodable;
    const auto shape = static_cast<Shape>(event.other);
    const bool isRight = known.ask == Ask::Give ? shape == Shape::Map || shape == Shape::Nil
                                                : shape == Shape::Number && event.value == event.number;
    if ((!isRight || !mayHaveResult || !known.hasArrived) && !isLateAnswer(known, event))
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
    if (isLateAnswer(known, event)) return;
    // Asked to call somebody else, who may have died.
    const bool asksOthers = known.ask == Ask::Relay || known.ask == Ask::CallBack;
    if (event.flag && (isEnding || asksOthers || !isAlive(known.owner) || !isAlive(known.caller) || isHubDead()))
        return;
    violated(fmt::format("call {} failed: {}", event.number, event.text));
}

// --- The bus, faults, the supervisor, the log

void Truth::handleOther(const Event& event)
{
    const std::string text(event.text);
    switch (event.deed) {
    case Deed::Hears: return hears(event);
    case Deed::Logs:
        tell("logs at {}: {}", event.number, text);
        if (event.number <= 2 && !isExplained(text)) violated(fmt::format("a line without a reason: {}", text));
        return;
    case Deed::Violates: return violated(text);
    case Deed::GivesUp: return givesUp(text);
    case Deed::FindsSilent:
        tell("{} does not respond", text);
        _silences[text].push_back(now());
        if (!_harms.contains(text)) violated(fmt::format("{} was said not to respond without a reason", text));
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
    ++_harms[name];
    const auto time = fn::Duration::milliseconds(event.value);
    tell("{} {}{}", name, event.how, event.value > 0 ? fmt::format(" for {} ms", event.value) : "");
    if (event.value > 0) _freezes.push_back({ event.number, name, now(), now() + time });
}

void Truth::givesUp(const std::string& message)
{
    tell("gives up: {}", message);
    _givenUp.insert(message);
    const auto explains = [&](const auto& harm) { return message.find(harm.first) != std::string::npos; };
    if (std::ranges::none_of(_harms, explains)) violated(fmt::format("gave up without a reason: {}", message));
}

/// What is said of a module that was harmed is explained by that, if it names it.
bool Truth::isExplained(const std::string& text) const
{
    if (!_givenUp.empty() && text == "ipc.moduleManager: Aborting launch") return true;
    if (isHubDead() && text.find("connect to ") != std::string::npos) return true;
    return std::ranges::any_of(_harms, [&](const auto& harm) { return text.find(harm.first) != std::string::npos; });
}

// --- At rest

void Truth::checkAtRest()
{
    checkCalls();
    checkReferences();
    checkFreezes();
    if (isHubDead()) return;
    checkThings();
    checkModules();
    checkWorld();
    if (modulesEndIdle) checkIdle();
}

void Truth::checkCalls()
{
    for (std::size_t number = 0; number < _calls.size(); ++number) {
        if (isOpen(_calls[number])) violated(fmt::format("call {} never ended", number));
    }
}

bool Truth::isOpen(const Call& call) const
{
    if (call.isOver || call.isCancelled || !isAlive(call.caller)) return false;
    return call.ask != Ask::Never || !isAlive(call.owner) || isHubDead();
}

std::size_t Truth::openCalls() const
{
    return static_cast<std::size_t>(std::ranges::count_if(_calls, [&](const Call& call) { return isOpen(call); }));
}

void Truth::checkReferences()
{
    for (const auto& [id, reference] : _references) {
        if (!isAlive(reference.holder) || reference.thing < 0) continue;
        const int owner = thing(reference.thing).owner;
        const bool shouldBeDead = !isAlive(owner) || (isHubDead() && owner != reference.holder);
        if (reference.isDead != shouldBeDead) {
            violated(fmt::format("{}'s reference to thing {} is {}", nameOf(reference.holder), reference.thing,
                shouldBeDead ? "alive though its owner is dead" : "dead though its owner is alive"));
        }
    }
}

bool Truth::isReferred(const Thing& thing, bool elsewhere) const
{
    return std::ranges::any_of(_references, [&](const auto& entry) {
        const auto& reference = entry.second;
        return isAlive(reference.holder) && reference.objectId == thing.objectId && !(elsewhere && reference.isLocal);
    });
}

void Truth::checkThings()
{
    for (std::size_t number = 0; number < _things.size(); ++number) {
        const auto& thing = _things[number];
        if (!thing.isAlive || !isAlive(thing.owner)) continue;
        if (thing.priorities.empty() && thing.holds == 0 && !isReferred(thing, false))
            violated(fmt::format("thing {} of {} lives though nobody holds it", number, nameOf(thing.owner)));
    }
}

std::map<ipc::ObjectId, std::set<int>> Truth::heldObjects() const
{
    std::map<ipc::ObjectId, std::set<int>> held;
    for (const auto& [id, reference] : _references) {
        if (isAlive(reference.holder) && !reference.isDead && !reference.isLocal)
            held[reference.objectId].insert(reference.holder);
    }
    return held;
}

std::size_t Truth::countedObjects() const
{
    const auto held = heldObjects();
    const bool isBusUsed = std::ranges::any_of(_connected, [&](const auto& entry) { return isAlive(entry.first); });
    return (isBusUsed ? 1 : 0) // Its relay.
        + static_cast<std::size_t>(std::ranges::count_if(_things, [&](const Thing& thing) {
              return isAlive(thing.owner) && (!thing.priorities.empty() || held.contains(thing.objectId));
          }));
}

std::multiset<std::pair<ipc::ObjectId, int>> Truth::registrations() const
{
    std::multiset<std::pair<ipc::ObjectId, int>> all;
    for (const auto& thing : _things) {
        if (!isAlive(thing.owner)) continue;
        for (const int priority : thing.priorities) all.emplace(thing.objectId, priority);
    }
    return all;
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
        if (end - begin < longestSilence || connected == _connected.end() || connected->second > begin) continue;
        const bool isNoticed =
            std::ranges::any_of(_silences[name], [&](fn::Duration moment) { return moment > begin && moment < end; });
        if (!isNoticed && !isHubDead() && !_leaving.contains(process))
            violated(fmt::format("the silence of {} was not noticed", name));
    }
}

/// Whom nobody needs has ended. What is registered and has been sent besides keeps its owner: nobody tells it whose uses are left.
void Truth::checkIdle()
{
    constexpr auto longest =
        fn::Duration::seconds(1300); // Twice the time until a module counts as idle, and some more.
    for (const auto& [process, since] : _connected) {
        if (!isAlive(process) || now() - since < longest) continue;
        const bool isNeeded = std::ranges::any_of(_things, [&](const Thing& thing) {
            if (thing.owner != process || !thing.isAlive) return false;
            return thing.priorities.empty() ? isReferred(thing, true) : thing.priorities.size() + thing.sends > 1;
        });
        if (!isNeeded) violated(fmt::format("{} is idle and does not end", nameOf(process)));
    }
}

} // namespace simulated
