#include "actor.h"
#include "core/ipc/object/object_dead_exception.h"
#include "core/ipc/registry.h"
#include "foundation/exceptions.h"
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

Witness& witness() { return Witness::current(); }

constexpr int manyCalls = 20; // At once: the table of those that are pending grows.
constexpr int channels = 3; // Of the bus; the first one is sticky.

fn::String channelName(int channel) { return fmt::format("load.{}", channel); }

template <typename T> T takeSome(std::vector<T>& all)
{
    const auto chosen = all.begin() + witness().choose(static_cast<std::uint32_t>(all.size()));
    T taken = std::move(*chosen);
    all.erase(chosen);
    return taken;
}

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

} // namespace

void tellResult(int call, const fn::Value& result)
{
    Event event { .deed = Deed::HasResult, .number = call };
    auto shape = result.isMap() ? Shape::Map : result.isNil() ? Shape::Nil : Shape::Other;
    if (result.isInteger()) {
        shape = Shape::Number;
        event.value = result.to<std::int64_t>();
    }
    event.other = static_cast<int>(shape);
    witness().tell(event);
}

void tellFailure(int call, const std::exception_ptr& failure)
{
    const auto text = describe(failure);
    const bool isDeath = text.find("ObjectDeadException") != std::string::npos;
    witness().tell({ .deed = Deed::HasFailure, .number = call, .flag = isDeath, .text = text });
}

Actor::Actor(const ipc::ModuleInitData& data) : Module(data), _hasOwnProcess(data.separateProcess()) { actor() = this; }

Actor::~Actor() { actor() = nullptr; }

Actor* Actor::inThisProcess() { return actor(); }

void Actor::onConnected()
{
    witness().tell({ .deed = Deed::Connects, .number = worker().workerId() });
    worker().registerObjectReferenceClass<ThingReference>();
    worker().registerObjectReferenceClass<Breaking::Reference>();
    for (int channel = 0; channel < channels; ++channel) listen(channel);
    someThing();
    actLater();
}

void Actor::terminate()
{
    if (!_hasOwnProcess) return; // The main program's loop.
    witness().tell({ .deed = Deed::Leaves, .flag = true });
    Module::terminate();
}

void Actor::onAboutToQuit()
{
    const bool isAlone = !worker().isConnected();
    const auto lives = [](const auto& held) { return !held->local() && !held->dead(); };
    if (isAlone && std::ranges::any_of(_held, lives))
        witness().tell({ .deed = Deed::Violates, .text = "objects live though the connection is lost" });
    witness().tell({ .deed = Deed::IsToldToQuit });
    Module::onAboutToQuit();
}

void Actor::actLater()
{
    const auto delay = fn::Duration::milliseconds(
        witness().pace() - witness().choose(witness().pace())); // The tame answer is to be quiet.
    _next = worker().loop().schedule(delay, [this] {
        if (witness().isResting()) return restLater();
        act();
        actLater();
    });
}

void Actor::act()
{
    switch (witness().choose(15)) {
    case 0: return;
    case 1: return registerThing(someThing(), static_cast<int>(witness().choose(5)));
    case 2: return findSomething();
    case 3: return cancelSomething();
    case 4: return dropSomething();
    case 5: return post();
    case 6:
        if (witness().choose(100) < 99 || !_hasOwnProcess) return;
        witness().tell({ .deed = Deed::Leaves });
        return Module::terminate();
    case 7: return hideAll();
    case 8: return callAnew();
    default: return callSomething();
    }
}

/// When all that went wrong is over: offers an object, finds the one that must be found, and calls it.
void Actor::restLater()
{
    const auto time = witness().timeUntilProof();
    if (!time) return;
    _next = worker().loop().schedule(std::max(*time, fn::Duration()), [this] {
        registerThing(fn::makeAuto<Thing>(worker()), proofPriority);
        _next = worker().loop().schedule(fn::Duration::seconds(4), [this] { proveAlive(); });
    });
}

void Actor::proveAlive()
{
    for (const auto& held : _held) witness().tell({ .deed = Deed::KeepsReference, .number = held->number() });
    find({}).then(
        [this](fn::AutoPtr<ThingReference>&& found) {
            int number = 0;
            call(found, Ask::Echo, number)
                .then(
                    [number](fn::Value&& result) {
                        tellResult(number, result);
                        witness().tell({ .deed = Deed::Proves });
                    },
                    [number](std::exception_ptr failure) { tellFailure(number, failure); });
        },
        [](std::exception_ptr) {});
}

// --- Objects

fn::AutoPtr<Thing> Actor::someThing()
{
    if (!_things.empty() && witness().choose(3) > 0)
        return _things[witness().choose(static_cast<std::uint32_t>(_things.size()))];
    auto made = fn::makeAuto<Thing>(worker());
    if (witness().choose(3) > 0 || _things.empty()) {
        _things.push_back(made);
        witness().tell({ .deed = Deed::HoldsThing, .number = made->number, .other = 1 });
    }
    return made;
}

void Actor::hold(fn::AutoPtr<ThingReference> reference)
{
    if (reference) _held.push_back(std::move(reference));
}

fn::AutoPtr<ThingReference> Actor::someHeld()
{
    if (_held.empty()) return {};
    return _held[witness().choose(static_cast<std::uint32_t>(_held.size()))];
}

void Actor::dropSomething()
{
    if (witness().choose(2) == 0) {
        if (!_held.empty()) takeSome(_held);
    } else if (_things.size() > 1) {
        witness().tell({ .deed = Deed::HoldsThing, .number = takeSome(_things)->number, .other = -1 });
    }
}

void Actor::registerThing(const fn::AutoPtr<Thing>& thing, int priority)
{
    const int number = thing->number;
    witness().tell({ .deed = Deed::Registers, .number = number, .other = priority });
    worker()
        .registry()
        ->registerObject(thing, priority)
        .then(
            [number] { witness().tell({ .deed = Deed::HasRegistered, .number = number }); }, [](std::exception_ptr) {});
}

fn::Promise<fn::AutoPtr<ThingReference>> Actor::find(fn::Duration bound)
{
    const int number = witness().next(Numbered::LookUps);
    witness().tell({ .deed = Deed::LooksUp, .number = number, .value = bound.totalMilliseconds() });
    return worker().registry()->getInstance<ThingReference>(bound).then(
        [number](fn::AutoPtr<ThingReference>&& found) {
            witness().tell({ .deed = Deed::Finds, .number = number, .other = found->number() });
            return std::move(found);
        },
        [number](std::exception_ptr failure) -> fn::AutoPtr<ThingReference> {
            const auto text = describe(failure);
            witness().tell({ .deed = Deed::FindsNothing, .number = number, .text = text });
            std::rethrow_exception(failure);
        });
}

void Actor::findSomething()
{
    find(fn::Duration::milliseconds(witness().choose(5000)))
        .then([this](fn::AutoPtr<ThingReference>&& found) { hold(std::move(found)); }, [](std::exception_ptr) {});
}

/// As a module that is about to end idle does, or shows them again.
void Actor::hideAll()
{
    const bool hides = witness().choose(3) == 2;
    const int number = witness().next(Numbered::Hides);
    witness().tell({ .deed = Deed::Hides, .number = number, .flag = hides });
    worker()
        .registry()
        ->callMethod("setInstancesHidden", hides)
        .then([number](fn::Value&&) { witness().tell({ .deed = Deed::HasHidden, .number = number }); },
            [](std::exception_ptr) {});
}

// --- Calls

fn::Promise<fn::Value> Actor::call(const fn::AutoPtr<ThingReference>& reference, Ask ask, int& number)
{
    number = witness().next(Numbered::Calls);
    witness().tell(
        { .deed = Deed::Calls, .number = number, .other = reference->number(), .value = static_cast<int>(ask) });
    auto argument = fn::Value::map({ { "call", number } });
    if (ask == Ask::Keep || ask == Ask::CallBack) {
        const auto other = someHeld(); // Of anybody: a third party's as well.
        if (other && other->thing() >= 0 && witness().choose(2) == 0) {
            if (other->local()) witness().tell({ .deed = Deed::SendsThing, .number = other->thing() });
            argument.set("thing", fn::Value::map({ { "number", other->thing() }, { "object", other } }));
        } else {
            argument.set("thing", someThing()->asValue());
        }
        argument.set("registry", worker().registry()); // Everybody's: counted for nobody.
    } else if (ask == Ask::Break && witness().choose(2) == 0) {
        argument.set("thing", fn::makeAuto<Breaking>(worker()));
    }
    return reference->callMethod(fn::String::number(static_cast<int>(ask)), argument);
}

void Actor::callSomething()
{
    const auto reference = someHeld();
    if (!reference) return findSomething();
    for (auto count = witness().choose(16) == 15 ? manyCalls : 1; count > 0; --count)
        callOn(reference, static_cast<Ask>(witness().choose(asks)));
    if (witness().choose(8) == 7) { // A time-out, or at once.
        const auto time = fn::Duration::milliseconds(witness().choose(30));
        worker().loop().schedule(time, [this] { cancelSomething(); }).detach();
    }
}

/// Cancels a call, lets go of the object, gets it anew and calls it again: all before the first call is answered.
void Actor::callAnew()
{
    const auto bound = fn::Duration::seconds(1);
    find(bound).then(
        [this, bound](fn::AutoPtr<ThingReference>&& found) {
            callOn(found, Ask::Later);
            cancel(_pending.back());
            const auto again = [this](fn::AutoPtr<ThingReference>&& sameAgain) { callOn(sameAgain, Ask::Later); };
            worker().loop().post([this, bound, again] {
                if (actor() == this) find(bound).then(again, [](std::exception_ptr) {});
            });
        },
        [](std::exception_ptr) {});
}

void Actor::callOn(const fn::AutoPtr<ThingReference>& reference, Ask ask)
{
    int number = 0;
    const auto promise = call(reference, ask, number);
    const auto end = [this, number] {
        std::erase_if(_pending, [&](const Pending& other) { return other.call == number; });
    };
    auto ended = promise.then(
        [this, number, ask, end](fn::Value&& result) {
            end();
            tellResult(number, result);
            if (ask == Ask::Give && result.isMap()) hold(thingIn(result));
        },
        [number, end](std::exception_ptr failure) {
            end();
            tellFailure(number, failure);
        });
    _pending.push_back({ number, std::move(ended) });
}

void Actor::cancelSomething()
{
    if (actor() == this && !_pending.empty())
        cancel(_pending[witness().choose(static_cast<std::uint32_t>(_pending.size()))]);
}

void Actor::cancel(const Pending& pending)
{
    const auto [number, promise] = pending;
    std::erase_if(_pending, [&](const Pending& other) { return other.call == number; });
    witness().tell({ .deed = Deed::Cancels, .number = number });
    promise.cancel();
}

// --- The bus

void Actor::post()
{
    const int channel = static_cast<int>(witness().choose(channels));
    const int number = witness().next(Numbered::Posts);
    witness().tell({ .deed = Deed::Posts, .number = channel, .value = number });
    auto body = fn::Value::map({ { "publisher", witness().process() }, { "number", number } });
    if (channel == 0)
        fn::MessageBus::instance().postStickyMessage(channelName(channel), std::move(body));
    else
        fn::MessageBus::instance().postMessage(channelName(channel), std::move(body));
}

void Actor::listen(int channel)
{
    _listening.push_back(fn::MessageBus::instance()
                             .onMessage(channelName(channel))
                             .connect([channel](const fn::String&, const fn::Value& body) {
                                 witness().tell({ .deed = Deed::Hears,
                                     .number = channel,
                                     .other = body.at("publisher").to<int>(),
                                     .value = body.at("number").to<int>() });
                             }));
}

} // namespace simulated
