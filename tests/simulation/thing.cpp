#include "thing.h"
#include "actor.h"
#include "core/fraction.h"
#include "foundation/exceptions.h"
#include "foundation/value_map.h"
#include <algorithm>

namespace simulated {

/// A boxed type that no worker can send.
struct Unsendable {
    fn::String toString() const { return "unsendable"; }
    friend bool operator<(const Unsendable&, const Unsendable&) { return false; }
    friend bool operator==(const Unsendable&, const Unsendable&) { return true; }
};

} // namespace simulated

template <> inline constexpr bool fn::isBoxable<simulated::Unsendable> = true;

namespace simulated {
namespace {

Witness& witness() { return Witness::current(); }

void violated(const char* what) { witness().tell({ .deed = Deed::Violates, .text = what }); }

fn::Duration someTime() { return fn::Duration::milliseconds(witness().choose(200)); }

} // namespace

ThingReference::ThingReference(ipc::ObjectReferenceInitializer& initializer) : CallableObjectReference(initializer)
{
    if (!initializer.manager) return;
    _number = witness().next(Numbered::References);
    witness().tell({ .deed = Deed::MakesReference, .number = _number, .object = objectId(), .flag = local() });
    objectDeadSignal().connect([this] { onDeath(); }).detach();
    const fn::AutoPtr self(this); // As constructors may.
}

ThingReference::~ThingReference()
{
    if (_number > 0) witness().tell({ .deed = Deed::EndsReference, .number = _number });
}

void ThingReference::recognize(int thing)
{
    if (_thing < 0) _thing = thing;
    witness().tell({ .deed = Deed::Recognizes, .number = _number, .other = thing });
}

void ThingReference::onDeath()
{
    if (std::exchange(_hasDied, true)) violated("a death was told twice");
    if (!dead()) violated("a death was told of an object that is not dead");
    witness().tell({ .deed = Deed::HearsDeath, .number = _number });
}

void ThingReference::onObjectDead()
{
    if (_number > 0 && witness().choose(4) == 3) throw fn::RuntimeException("on purpose");
    CallableObjectReference::onObjectDead();
}

void ThingReference::onEvent(const fn::String&, const fn::Value& argument)
{
    witness().tell({ .deed = Deed::HearsEvent, .number = _number, .value = argument.to<int>() });
}

Breaking::Reference::Reference(ipc::ObjectReferenceInitializer& initializer) : CallableObjectReference(initializer)
{
    if (initializer.manager && !initializer.instance) throw fn::RuntimeException("broken on purpose");
}

fn::AutoPtr<ipc::ObjectReference> Breaking::createReference(ipc::ObjectReferenceInitializer& initializer)
{
    return fn::makeAuto<Reference>(initializer);
}

Thing::Thing(ipc::Worker& worker) : CallableObjectInstance(worker), number(witness().next(Numbered::Things))
{
    witness().tell({ .deed = Deed::MakesThing, .number = number, .object = objectId() });
}

Thing::~Thing() { witness().tell({ .deed = Deed::EndsThing, .number = number }); }

fn::AutoPtr<ipc::ObjectReference> Thing::createReference(ipc::ObjectReferenceInitializer& initializer)
{
    auto reference = fn::makeAuto<ThingReference>(initializer);
    reference->recognize(number);
    return reference;
}

fn::Value Thing::asValue()
{
    witness().tell({ .deed = Deed::SendsThing, .number = number });
    return fn::Value::map({ { "number", number }, { "object", fn::AutoPtr<Thing>(this) } });
}

fn::AutoPtr<ThingReference> thingIn(const fn::Value& value)
{
    auto reference = value.get("object").object<ThingReference>();
    if (reference) reference->recognize(value.get("number").to<int>());
    return reference;
}

void Thing::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    const int call = argument.at("call").to<int>();
    witness().tell({ .deed = Deed::GetsCall, .number = call });
    _calls.emplace_back(context, call);
    answer(context, static_cast<Ask>(name.toInt(0, 10, nullptr)), call, argument);
}

void Thing::onMethodCallCancelled(const CallContext& context)
{
    const auto known = std::ranges::find(_calls.rbegin(), _calls.rend(), context, &std::pair<CallContext, int>::first);
    if (known != _calls.rend()) witness().tell({ .deed = Deed::GetsCancel, .number = known->second });
}

void Thing::answer(const CallContext& context, Ask ask, int call, const fn::Value& argument)
{
    auto* const actor = Actor::inThisProcess();
    switch (ask) {
    case Ask::Echo: return sendResult(context, call);
    case Ask::Later: return answerLater(context, call);
    case Ask::Never: return;
    case Ask::Throw: throw fn::RuntimeException(fmt::format("call {}", call));
    case Ask::Error: return sendError(context, fn::Value(fmt::format("call {}", call)));
    case Ask::Twice: sendResult(context, call); return sendResult(context, -1);
    case Ask::Give: return sendResult(context, actor ? actor->someThing()->asValue() : fn::Value());
    case Ask::Keep:
        if (actor) actor->hold(thingIn(argument.at("thing")));
        return sendResult(context, call);
    case Ask::Relay: return callOn(context, call, actor ? actor->someHeld() : fn::AutoPtr<ThingReference>());
    case Ask::CallBack: return callOn(context, call, thingIn(argument.at("thing")));
    case Ask::Unencodable: return sendResult(context, fn::Value(Unsendable()));
    case Ask::Event:
        witness().tell({ .deed = Deed::Broadcasts, .number = number, .value = ++_events });
        broadcastEvent("event", _events);
        return sendResult(context, call);
    case Ask::Break:
        return sendResult(
            context, argument.find("thing") ? fn::Value(call) : fn::Value(fn::makeAuto<Breaking>(worker())));
    }
}

void Thing::answerLater(const CallContext& context, int call)
{
    loop()
        .schedule(someTime(), [self = fn::AutoPtr(this), context, call] { self->sendResult(context, call); })
        .detach();
}

void Thing::callOn(const CallContext& context, int call, const fn::AutoPtr<ThingReference>& other)
{
    auto* const actor = Actor::inThisProcess();
    if (!other || !actor) return sendResult(context, call);
    int inner = 0;
    const auto promise = actor->call(other, Ask::Echo, inner);
    promise.then(
        [self = fn::AutoPtr(this), context, call, inner](fn::Value&& result) {
            tellResult(inner, result);
            self->sendResult(context, call);
        },
        [self = fn::AutoPtr(this), context, inner](std::exception_ptr failure) {
            tellFailure(inner, failure);
            self->sendError(context, failure);
        });
}

} // namespace simulated
