#include "actor.h"
#include "base/exceptions.h"
#include "core/ipc/registry.h"
#include "foundation/message_bus.h"
#include "foundation/system/process_local.h"
#include "foundation/value_map.h"
#include <algorithm>

namespace simulated {
namespace {

Actor*& actor()
{
    static fn::ProcessLocal<Actor*> actor;
    return actor.get();
}

constexpr int manyCalls = 20; // At once: the table of those that are pending grows.
constexpr int channels = 3; // Of the bus; the first one is sticky.

fn::String channelName(int channel) { return fmt::format("load.{}", channel); }

auto someOf(auto& all) { return std::next(all.begin(), choose(static_cast<std::uint32_t>(all.size()))); }

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

void ignore(const std::exception_ptr&) { }

template <typename T> void tellOnce(const fn::Promise<T>& isDone, const Event& event)
{
    isDone.then([event](auto&&...) { tell(event); }, ignore);
}

void tellBody()
{
    const auto none = fn::Value::map({ { "publisher", 0 }, { "number", 0 } });
    const auto body = fn::MessageBus::instance().getStickyMessage(channelName(0)).value_or(none);
    const int publisher = body.at("publisher").to<int>();
    tell({ .deed = Deed::KeepsBody, .other = publisher, .value = body.at("number").to<int>() });
}

} // namespace

Actor::Actor(const ipc::ModuleInitData& data) : Module(data), _hasOwnProcess(data.separateProcess()) { actor() = this; }

Actor::~Actor() { actor() = nullptr; }

Actor* Actor::inThisProcess() { return actor(); }

void Actor::onConnected()
{
    tell({ .deed = Deed::Connects, .number = worker().workerId() });
    worker().registerObjectReferenceClass<ThingReference>();
    _listening =
        fn::MessageBus::instance().onMessage("load").connect([](const fn::String& name, const fn::Value& body) {
            tell({ .deed = Deed::Hears,
                .number = name.view().back() - '0',
                .other = body.at("publisher").to<int>(),
                .value = body.at("number").to<int>() });
        });
    someThing();
    actLater();
}

void Actor::terminate()
{
    if (!_hasOwnProcess) return; // The main program's loop.
    tell({ .deed = Deed::Leaves, .flag = true });
    Module::terminate();
}

void Actor::onAboutToQuit()
{
    const bool isAlone = !worker().isConnected();
    const auto lives = [](const auto& held) { return !held->local() && !held->dead(); };
    if (isAlone && std::ranges::any_of(_held, lives))
        tell({ .deed = Deed::Violates, .text = "objects live though the connection is lost" });
    tell({ .deed = Deed::IsToldToQuit });
    Module::onAboutToQuit();
}

/// When all that went wrong is over: offers an object, finds the one that must be found, and calls it.
void Actor::actLater()
{
    auto& witness = Witness::current();
    _next = worker().loop().schedule(fn::Duration::milliseconds(witness.pause()), [this, &witness] {
        if (!witness.isResting()) {
            act();
        } else if (const auto time = witness.timeUntilProof()) {
            _next = worker().loop().schedule(std::max(*time, fn::Duration()), [this] {
                registerThing(fn::makeAuto<Thing>(worker()), proofPriority);
                _next = worker().loop().schedule(fn::Duration::seconds(4), [this] { proveAlive(); });
            });
            return;
        } else {
            tellBody();
        }
        actLater();
    });
}

void Actor::act()
{
    switch (choose(15)) {
    case 0: return;
    case 1: return registerThing(someThing(), static_cast<int>(choose(5)));
    case 2: return findSomething();
    case 3: return cancelSomething();
    case 4: return dropSomething();
    case 5: return post();
    case 6:
        if (choose(100) < 99 || !_hasOwnProcess) return;
        tell({ .deed = Deed::Leaves });
        return Module::terminate();
    case 7: return hideAll();
    case 8: return callAnew();
    default: return callSomething();
    }
}

void Actor::proveAlive()
{
    tellBody();
    for (const auto& held : _held) tell({ .deed = Deed::KeepsReference, .number = held->number() });
    tellOnce(find({}).then([this](fn::AutoPtr<ThingReference>&& found) { return call(found, Ask::Echo).second; }),
        { .deed = Deed::Proves });
}

// --- Objects

fn::AutoPtr<Thing> Actor::someThing()
{
    if (!_things.empty() && choose(3) > 0) return *someOf(_things);
    auto made = fn::makeAuto<Thing>(worker());
    if (choose(3) > 0 || _things.empty()) {
        _things.push_back(made);
        tell({ .deed = Deed::HoldsThing, .number = made->number, .other = 1 });
    }
    return made;
}

void Actor::hold(fn::AutoPtr<ThingReference> reference)
{
    if (reference) _held.push_back(std::move(reference));
}

fn::AutoPtr<ThingReference> Actor::someHeld() { return _held.empty() ? fn::AutoPtr<ThingReference>() : *someOf(_held); }

void Actor::dropSomething()
{
    if (choose(2) == 0) {
        if (!_held.empty()) _held.erase(someOf(_held));
    } else if (_things.size() > 1) {
        const auto dropped = someOf(_things);
        tell({ .deed = Deed::HoldsThing, .number = (*dropped)->number, .other = -1 });
        _things.erase(dropped);
    }
}

void Actor::registerThing(const fn::AutoPtr<Thing>& thing, int priority)
{
    tell({ .deed = Deed::Registers, .number = thing->number, .other = priority });
    tellOnce(
        worker().registry()->registerObject(thing, priority), { .deed = Deed::HasRegistered, .number = thing->number });
}

fn::Promise<fn::AutoPtr<ThingReference>> Actor::find(fn::Duration bound)
{
    const int number = Witness::current().next(Numbered::LookUps);
    tell({ .deed = Deed::LooksUp, .number = number, .value = bound.totalMilliseconds() });
    return worker().registry()->getInstance<ThingReference>(bound).then(
        [number](fn::AutoPtr<ThingReference>&& found) {
            tell({ .deed = Deed::Finds, .number = number, .other = found->number() });
            return std::move(found);
        },
        [number](std::exception_ptr failure) -> fn::AutoPtr<ThingReference> {
            const auto text = describe(failure);
            tell({ .deed = Deed::FindsNothing, .number = number, .text = text });
            std::rethrow_exception(failure);
        });
}

void Actor::findSomething()
{
    find(fn::Duration::milliseconds(choose(5000)))
        .then([this](fn::AutoPtr<ThingReference>&& found) { hold(std::move(found)); }, ignore);
}

/// As a module that is about to end idle does, or shows them again.
void Actor::hideAll()
{
    const bool hides = choose(3) == 2;
    const int number = Witness::current().next(Numbered::Hides);
    tell({ .deed = Deed::Hides, .number = number, .flag = hides });
    tellOnce(worker().registry()->callMethod("setInstancesHidden", hides),
        { .deed = Deed::HasHidden, .number = number, .flag = hides });
}

// --- Calls

std::pair<int, fn::Promise<fn::Value>> Actor::call(const fn::AutoPtr<ThingReference>& reference, Ask ask)
{
    const int number = Witness::current().next(Numbered::Calls);
    tell({ .deed = Deed::Calls, .number = number, .other = reference->number(), .value = static_cast<int>(ask) });
    auto promise = reference->callMethod(fn::String::number(static_cast<int>(ask)), argumentOf(number, ask))
                       .then(
                           [number](fn::Value&& result) {
                               tell({ .deed = Deed::HasResult,
                                   .number = number,
                                   .value = result.isInteger() ? result.to<std::int64_t>() : -1,
                                   .flag = result.isMap() || result.isNil() });
                               return std::move(result);
                           },
                           [number](std::exception_ptr failure) -> fn::Value {
                               const auto text = describe(failure);
                               const bool isDeath = text.starts_with("ObjectDeadException");
                               tell({ .deed = Deed::HasFailure, .number = number, .flag = isDeath, .text = text });
                               std::rethrow_exception(failure);
                           });
    return { number, std::move(promise) };
}

fn::Value Actor::argumentOf(int call, Ask ask)
{
    auto argument = fn::Value::map({ { "call", call } });
    if (choose(256) == 255) argument.set("bulk", bulk());
    if (ask == Ask::Keep || ask == Ask::CallBack) {
        const auto other = someHeld(); // Of anybody: a third party's as well.
        if (other && other->thing() >= 0 && (other->dead() || choose(2) == 0)) {
            tell({ .deed = Deed::Passes, .number = call, .other = other->number() });
            argument.set("thing", fn::Value::map({ { "number", other->thing() }, { "object", other } }));
        } else {
            argument.set("thing", someThing()->asValue());
        }
        argument.set("registry", worker().registry()); // Everybody's: counted for nobody.
    }
    return argument;
}

void Actor::callSomething()
{
    const auto reference = someHeld();
    if (!reference) return findSomething();
    for (auto count = choose(16) == 15 ? manyCalls : 1; count > 0; --count)
        callOn(reference, static_cast<Ask>(choose(asks)));
    if (choose(8) == 7) { // A time-out, or at once.
        const auto time = fn::Duration::milliseconds(choose(30));
        worker().loop().schedule(time, [this] { cancelSomething(); }).detach();
    }
}

/// Cancels a call, lets go of the object, gets it anew and calls it again: all before the first call is answered.
void Actor::callAnew()
{
    const auto bound = fn::Duration::seconds(1);
    find(bound).then(
        [this, bound](fn::AutoPtr<ThingReference>&& found) {
            cancel(callOn(found, Ask::Later));
            const auto again = [this](fn::AutoPtr<ThingReference>&& sameAgain) { callOn(sameAgain, Ask::Later); };
            worker().loop().post([this, bound, again] {
                if (actor() == this) find(bound).then(again, ignore);
            });
        },
        ignore);
}

int Actor::callOn(const fn::AutoPtr<ThingReference>& reference, Ask ask)
{
    const auto [number, promise] = call(reference, ask);
    auto ended = promise.then(
        [this, number = number, ask](fn::Value&& result) {
            _pending.erase(number);
            if (ask == Ask::Give && result.isMap()) hold(thingIn(result));
        },
        [this, number = number](std::exception_ptr) { _pending.erase(number); });
    _pending.emplace(number, std::move(ended));
    return number;
}

void Actor::cancelSomething()
{
    if (actor() == this && !_pending.empty()) cancel(someOf(_pending)->first);
}

void Actor::cancel(int call)
{
    const auto promise = _pending.extract(call).mapped();
    tell({ .deed = Deed::Cancels, .number = call });
    promise.cancel();
}

// --- The bus

void Actor::post()
{
    const int channel = static_cast<int>(choose(channels));
    const int number = Witness::current().next(Numbered::Posts);
    tell({ .deed = Deed::Posts, .number = channel, .value = number });
    auto body = fn::Value::map({ { "publisher", Witness::current().process() }, { "number", number } });
    if (channel == 0)
        fn::MessageBus::instance().postStickyMessage(channelName(channel), std::move(body));
    else
        fn::MessageBus::instance().postMessage(channelName(channel), std::move(body));
}

} // namespace simulated
