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

constexpr int channels = 3; // Of the bus; the first one is sticky.

fn::String channelName(int channel) { return fmt::format("load.{}", channel); }

template <typename T> T takeSome(std::vector<T>& all)
{
    const auto chosen = all.begin() + witness().choose(static_cast<std::uint32_t>(all.size()));
    T taken = std::move(*chosen);
    all.erase(chosen);
    return taken;
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
    Event event { .deed = Deed::HasFailure, .number = call };
    std::string text;
    try {
        std::rethrow_exception(failure);
    } catch (const fn::Exception& exception) {
        text = fmt::format("{}: {}", exception.className(), exception.what());
        event.flag = dynamic_cast<const ipc::ObjectDeadException*>(&exception);
    } catch (const std::exception& exception) {
        text = exception.what();
    }
    event.text = text;
    witness().tell(event);
}

Actor::Actor(const ipc::ModuleInitData& data) : Module(data) { actor() = this; }

Actor::~Actor() { actor() = nullptr; }

Actor* Actor::inThisProcess() { return actor(); }

void Actor::onConnected()
{
    witness().tell({ .deed = Deed::Connects, .number = worker().workerId() });
    worker().registerObjectReferenceClass<ThingReference>();
    for (int channel = 0; channel < channels; ++channel) listen(channel);
    someThing();
    actLater();
}

void Actor::terminate()
{
    witness().tell({ .deed = Deed::Leaves });
    Module::terminate();
}

void Actor::actLater()
{
    const auto delay = fn::Duration::milliseconds(100 - witness().choose(100)); // The tame answer is to be quiet.
    _next = worker().loop().schedule(delay, [this] {
        if (witness().isResting()) return;
        act();
        actLater();
    });
}

void Actor::act()
{
    switch (witness().choose(13)) {
    case 0: return;
    case 1: return registerSomething();
    case 2: return findSomething();
    case 3: return cancelSomething();
    case 4: return dropSomething();
    case 5: return post();
    case 6:
        if (witness().choose(100) == 99) terminate();
        return;
    default: return callSomething();
    }
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

void Actor::registerSomething()
{
    const auto thing = someThing();
    const int priority = static_cast<int>(witness().choose(5));
    witness().tell({ .deed = Deed::Registers, .number = thing->number, .other = priority });
    worker().registry()->registerObject(thing, priority).then([] {}, [](std::exception_ptr) {});
}

void Actor::findSomething()
{
    const auto bound = fn::Duration::milliseconds(witness().choose(5000));
    worker().registry()->getInstance<ThingReference>(bound).then(
        [this](fn::AutoPtr<ThingReference>&& found) {
            if (!found) witness().tell({ .deed = Deed::Violates, .text = "getInstance gave nothing" });
            hold(std::move(found));
        },
        [](std::exception_ptr) {});
}

// --- Calls

fn::Promise<fn::Value> Actor::call(const fn::AutoPtr<ThingReference>& reference, Ask ask, int& number)
{
    number = witness().next(Numbered::Calls);
    witness().tell(
        { .deed = Deed::Calls, .number = number, .other = reference->thing(), .value = static_cast<int>(ask) });
    auto argument = fn::Value::map({ { "call", number } });
    if (ask == Ask::Keep || ask == Ask::CallBack) {
        const auto other = someHeld(); // Of anybody: a third party's as well.
        if (other && other->thing() >= 0 && witness().choose(2) == 0) {
            if (other->local()) witness().tell({ .deed = Deed::SendsThing, .number = other->thing() });
            argument.set("thing", fn::Value::map({ { "number", other->thing() }, { "object", other } }));
        } else {
            argument.set("thing", someThing()->asValue());
        }
    }
    return reference->callMethod(fn::String::number(static_cast<int>(ask)), argument);
}

void Actor::callSomething()
{
    const auto reference = someHeld();
    if (!reference) return findSomething();
    const auto ask = static_cast<Ask>(witness().choose(asks));
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
    if (_pending.empty()) return;
    const auto pending = takeSome(_pending);
    witness().tell({ .deed = Deed::Cancels, .number = pending.call });
    pending.promise.cancel();
}

// --- The bus

void Actor::post()
{
    const int channel = static_cast<int>(witness().choose(channels));
    auto body = fn::Value::map({ { "publisher", witness().process() }, { "number", witness().next(Numbered::Posts) } });
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
