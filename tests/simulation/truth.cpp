#include "truth.h"
#include "core/ipc/object/object_dead_exception.h"
#include "core/ipc/registry_impl.h"
#include "foundation/message_bus.h"
#include "thing.h"
#include <algorithm>
#include <climits>
#include <cstdio>

namespace simulated {
namespace {

Truth* theTruth = nullptr;

bool isRunning(const Process* process) { return process && !process->isDead(); }

/// Whether whoever tells something now still counts.
bool counts() { return isRunning(Process::current()); }

std::string describe(const std::exception_ptr& failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const fn::Exception& exception) {
        return fmt::format("{}: {}", exception.className(), exception.what());
    } catch (const std::exception& exception) {
        return exception.what();
    }
}

bool isDeath(const std::exception_ptr& failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const ipc::ObjectDeadException&) {
        return true;
    } catch (...) {
        return false;
    }
}

} // namespace

Truth::Truth(World& world, bool tells) : _world(world), _tells(tells) { theTruth = this; }
Truth::~Truth() { theTruth = nullptr; }
Truth& Truth::current() { return *theTruth; }

void Truth::print(const std::string& line) const
{
    const auto* const process = Process::current();
    fmt::print("{:11.6f} s  {}: {}\n", _world.now().totalSeconds(),
        process ? fmt::format("{} ({})", process->name(), process->id()) : "the world", line);
    std::fflush(stdout); // The next line may be the last one.
}

void Truth::violated(std::string what)
{
    if (Process::current() && !counts()) return;
    tell("VIOLATED: {}", what);
    _violations.push_back(std::move(what));
}

/// Neither killed nor about to end.
bool Truth::isAlive(const Process* process) const { return isRunning(process) && !_leaving.contains(process); }

void Truth::leaves()
{
    tell("ends itself");
    _leaving.insert(Process::current());
}

void Truth::connected(ipc::WorkerId worker)
{
    tell("is connected as worker {}", worker);
    _connected.emplace(Process::current(), _world.now());
}

// --- Objects

int Truth::madeThing(ipc::ObjectId objectId)
{
    _things.push_back({ .owner = Process::current(), .objectId = objectId, .priorities = {} });
    tell("makes thing {}", _things.size() - 1);
    return static_cast<int>(_things.size()) - 1;
}

void Truth::thingEnded(int thing)
{
    auto& ended = _things[static_cast<std::size_t>(thing)];
    ended.isAlive = false;
    if (!counts()) return;
    tell("thing {} ends", thing);
    if (isEnding || !isAlive(ended.owner)) return;
    for (const auto* reference : _references) {
        if (reference->thing == thing && isAlive(reference->process) && !reference->dead() && !reference->local()
            && hub)
            violated(fmt::format("thing {} ended though {} holds a reference", thing, reference->process->name()));
    }
}

void Truth::held(int thing, int change) { _things[static_cast<std::size_t>(thing)].holds += change; }

void Truth::registered(int thing, int priority)
{
    _things[static_cast<std::size_t>(thing)].priorities.insert(priority);
}

void Truth::sent(int thing) { ++_things[static_cast<std::size_t>(thing)].sends; }

void Truth::madeReference(ThingReference& reference) { _references.push_back(&reference); }
void Truth::referenceEnded(ThingReference& reference) { std::erase(_references, &reference); }

void Truth::referenceDied(ThingReference& reference)
{
    if (!counts() || reference.thing < 0) return;
    tell("hears that thing {} is dead", reference.thing);
    const auto& thing = _things[static_cast<std::size_t>(reference.thing)];
    if (isAlive(thing.owner) && isAlive(reference.process) && !isHubDead() && !isEnding)
        violated(fmt::format("thing {} was told dead", reference.thing));
}

// --- Calls

int Truth::called(Ask ask, const ThingReference& reference)
{
    const int number = static_cast<int>(_calls.size());
    auto* const owner = reference.thing < 0 ? nullptr : _things[static_cast<std::size_t>(reference.thing)].owner;
    _calls.push_back({ ask, Process::current(), owner, reference.thing });
    tell("makes call {} ({}) on thing {}", number, static_cast<int>(ask), reference.thing);
    return number;
}

void Truth::arrived(int call)
{
    if (!counts()) return;
    auto& known = _calls[static_cast<std::size_t>(call)];
    tell("gets call {}", call);
    if (std::exchange(known.hasArrived, true)) violated(fmt::format("call {} arrived twice", call));
    known.owner = Process::current();
}

void Truth::cancelled(int call)
{
    tell("cancels call {}", call);
    _calls[static_cast<std::size_t>(call)].isCancelled = true;
}

/// Request ids begin anew with each reference: where one is dropped after a cancel and another one to the same object is made, the
/// late answer to the cancelled call ends the call that has its number now.
bool Truth::isLateAnswer(const Call& call, const fn::Value& answer) const
{
    return std::ranges::any_of(_calls, [&](const Call& earlier) {
        if (&earlier == &call || !earlier.isCancelled || earlier.caller != call.caller) return false;
        const auto number = static_cast<int>(&earlier - _calls.data());
        return answer.isMap()
            ? earlier.ask == Ask::Give
            : answer == fn::Value(number) || answer == fn::Value(fmt::format("RuntimeException: call {}", number));
    });
}

void Truth::fulfilled(int call, const fn::Value& result)
{
    if (!counts()) return;
    ++_answers;
    auto& known = _calls[static_cast<std::size_t>(call)];
    tell("has the answer of call {}", call);
    if (std::exchange(known.isOver, true)) violated(fmt::format("call {} ended twice", call));
    if (known.isCancelled) violated(fmt::format("call {} ended after it was cancelled", call));
    const bool mayHaveResult =
        known.ask != Ask::Never && known.ask != Ask::Throw && known.ask != Ask::Error && known.ask != Ask::Unencodable;
    const bool isRight = known.ask == Ask::Give ? result.isMap() || result.isNil() : result == fn::Value(call);
    if ((!isRight || !mayHaveResult || !known.hasArrived) && !isLateAnswer(known, result))
        violated(fmt::format("call {} has a wrong result", call));
}

void Truth::rejected(int call, const std::exception_ptr& failure)
{
    if (!counts()) return;
    auto& known = _calls[static_cast<std::size_t>(call)];
    const auto what = describe(failure);
    tell("call {} fails: {}", call, what);
    if (std::exchange(known.isOver, true)) violated(fmt::format("call {} ended twice", call));
    if (known.isCancelled) violated(fmt::format("call {} failed after it was cancelled", call));
    if (known.ask == Ask::Unencodable && known.hasArrived) return;
    if ((known.ask == Ask::Throw || known.ask == Ask::Error) && what == fmt::format("RuntimeException: call {}", call))
        return;
    if (isLateAnswer(known, fn::Value(what))) return;
    // Asked to call somebody else, who may have died.
    const bool asksOthers = known.ask == Ask::Relay || known.ask == Ask::CallBack;
    if (isDeath(failure) && (isEnding || asksOthers || !isAlive(known.owner) || !isAlive(known.caller) || isHubDead()))
        return;
    violated(fmt::format("call {} failed: {}", call, what));
}

// --- The bus

int Truth::posted(int channel)
{
    _posts.resize(std::max(_posts.size(), static_cast<std::size_t>(channel) + 1));
    return ++_posts[static_cast<std::size_t>(channel)];
}

void Truth::heard(int channel, int publisher, int number, std::map<int, int>& last)
{
    if (!counts()) return;
    auto& previous = last[channel * 1'000'000 + publisher];
    if (number <= previous)
        violated(fmt::format("a message of process {} came out of order on the bus, or twice", publisher));
    previous = number;
}

// --- Faults and the supervisor

void Truth::expects(const fn::String& module) { _modules.push_back(module); }

void Truth::harmed(const fn::String& name, const char* harm, fn::Duration time)
{
    ++_harms[name];
    tell("{} {}{}", name, harm, time > fn::Duration() ? fmt::format(" for {} ms", time.totalMilliseconds()) : "");
    if (time > fn::Duration()) _freezes.push_back({ _world.find(name), _world.now(), _world.now() + time });
}

void Truth::gaveUp(const fn::String& message)
{
    tell("gives up: {}", message);
    _givenUp.insert(message);
    const auto explains = [&](const auto& harm) { return message.contains(harm.first); };
    if (std::ranges::none_of(_harms, explains)) violated(fmt::format("gave up without a reason: {}", message));
}

void Truth::notResponding(const fn::String& module)
{
    tell("{} does not respond", module);
    _silences[module].push_back(_world.now());
    if (!_harms.contains(module)) violated(fmt::format("{} was said not to respond without a reason", module));
}

void Truth::logged(int priority, const std::string& line)
{
    if (!counts()) return;
    tell("logs at {}: {}", priority, line);
    if (priority <= 2 && !isExplained(line)) violated(fmt::format("a line without a reason: {}", line));
}

/// What is said of a module that was harmed is explained by that, if it names it.
bool Truth::isExplained(const std::string& text) const
{
    if (!_givenUp.empty() && text == "ipc.moduleManager: Aborting launch") return true;
    if (isHubDead() && text.find("connect to ") != std::string::npos) return true;
    return std::ranges::any_of(
        _harms, [&](const auto& harm) { return text.find(harm.first.toStdString()) != std::string::npos; });
}

bool Truth::isHubDead() const { return !isAlive(_world.processes().front().get()); }

// --- At rest

void Truth::checkAtRest()
{
    checkCalls();
    checkReferences();
    checkFreezes();
    if (isHubDead() || !hub) return;
    checkThings();
    checkCounts();
    checkRegistry();
    checkModules();
    checkStickyBodies();
    if (mayEndIdle) checkIdle();
}

void Truth::checkCalls()
{
    for (std::size_t number = 0; number < _calls.size(); ++number) {
        const auto& call = _calls[number];
        if (call.isOver || call.isCancelled || !isAlive(call.caller)) continue;
        if (call.ask == Ask::Never && isAlive(call.owner) && !isHubDead()) continue;
        violated(fmt::format("call {} never ended", number));
    }
}

void Truth::checkReferences()
{
    for (const auto* reference : _references) {
        if (!isAlive(reference->process) || reference->thing < 0) continue;
        const auto* const owner = _things[static_cast<std::size_t>(reference->thing)].owner;
        const bool shouldBeDead = !isAlive(owner) || (isHubDead() && owner != reference->process);
        if (reference->dead() != shouldBeDead || (shouldBeDead && !reference->hasDied)) {
            violated(fmt::format("{}'s reference to thing {} is {}", reference->process->name(), reference->thing,
                shouldBeDead ? "alive though its owner is dead" : "dead though its owner is alive"));
        }
    }
}

bool Truth::isReferred(const Thing& thing, bool elsewhere) const
{
    return std::ranges::any_of(_references, [&](const auto* reference) {
        return isAlive(reference->process) && reference->objectId() == thing.objectId
            && !(elsewhere && reference->local());
    });
}

void Truth::checkThings()
{
    for (std::size_t number = 0; number < _things.size(); ++number) {
        const auto& thing = _things[number];
        if (!thing.isAlive || !isAlive(thing.owner)) continue;
        if (thing.priorities.empty() && thing.holds == 0 && !isReferred(thing, false))
            violated(fmt::format("thing {} of {} lives though nobody holds it", number, thing.owner->name()));
    }
}

/// The hub counts what living holders hold of living owners, and nothing else.
void Truth::checkCounts()
{
    std::map<ipc::ObjectId, std::set<Process*>> held;
    for (const auto* reference : _references) {
        if (isAlive(reference->process) && !reference->dead() && !reference->local())
            held[reference->objectId()].insert(reference->process);
    }
    const auto& counts = hub->usageCounts();
    for (const auto& [objectId, holders] : held) {
        if (counts.receivers(objectId).size() < holders.size())
            violated(fmt::format("object {} is counted too rarely", objectId));
    }
    const bool isBusUsed = std::ranges::any_of(_connected, [&](const auto& entry) { return isAlive(entry.first); });
    std::size_t expected = isBusUsed ? 1 : 0; // Its relay.
    for (const auto& thing : _things) {
        expected += isAlive(thing.owner) && (!thing.priorities.empty() || held.contains(thing.objectId)) ? 1 : 0;
    }
    if (counts.objectCount() != expected)
        violated(fmt::format("{} objects are counted, {} are held", counts.objectCount(), expected));
}

/// The registry knows the objects of the living, and gives them in their order.
void Truth::checkRegistry()
{
    std::multiset<std::pair<ipc::ObjectId, int>> expected;
    for (const auto& thing : _things) {
        if (!isAlive(thing.owner)) continue;
        for (const int priority : thing.priorities) expected.emplace(thing.objectId, priority);
    }
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

/// Each module runs, unless the supervisor has given it up.
void Truth::checkModules()
{
    for (const auto& module : _modules) {
        auto* const process = _world.find(module);
        const bool isThere = process && (process->isHanging() || _connected.contains(process));
        const auto isAbout = [&](const fn::String& message) { return message.contains(module); };
        // A launch that fails ends the launches of those behind it.
        const bool mayBeMissing = std::ranges::any_of(_givenUp, isAbout)
            || std::ranges::any_of(
                _givenUp, [](const fn::String& message) { return message.contains("Failed to start"); });
        if (!isThere && !mayBeMissing && !mayEndIdle) violated(fmt::format("{} is not there", module));
    }
}

/// Who was silent for longer than a PING may stay unanswered has been reported.
void Truth::checkFreezes()
{
    constexpr auto longest =
        fn::Duration::seconds(5); // A third of the time until the PING, the time itself, and some more.
    for (const auto& [process, begin, end] : _freezes) {
        const auto connected = _connected.find(process);
        if (end - begin < longest || connected == _connected.end() || connected->second > begin) continue;
        const bool isNoticed = std::ranges::any_of(
            _silences[process->name()], [&](fn::Duration moment) { return moment > begin && moment < end; });
        if (!isNoticed && !isHubDead() && !_leaving.contains(process))
            violated(fmt::format("the silence of {} was not noticed", process->name()));
    }
}

/// Whom nobody needs has ended. What is registered and has been sent besides keeps its owner: nobody tells it whose uses are left.
void Truth::checkIdle()
{
    constexpr auto longest =
        fn::Duration::seconds(1300); // Twice the time until a module counts as idle, and some more.
    for (const auto& [process, since] : _connected) {
        if (!isAlive(process) || _world.now() - since < longest) continue;
        const bool isNeeded = std::ranges::any_of(_things, [&](const Thing& thing) {
            if (thing.owner != process || !thing.isAlive) return false;
            return thing.priorities.empty() ? isReferred(thing, true) : thing.priorities.size() + thing.sends > 1;
        });
        if (!isNeeded) violated(fmt::format("{} is idle and does not end", process->name()));
    }
}

/// All that are on the bus keep the same sticky bodies.
void Truth::checkStickyBodies()
{
    std::set<fn::Value> bodies;
    for (const auto& [process, since] : _connected) {
        if (!isAlive(process)) continue;
        auto* const outer = fn::uv::System::exchangeCurrent(process);
        bodies.insert(fn::MessageBus::instance().getStickyMessage("load.0").value_or(fn::Value()));
        fn::uv::System::exchangeCurrent(outer);
    }
    if (bodies.size() > 1) violated(fmt::format("{} different sticky bodies are kept", bodies.size()));
}

} // namespace simulated
