#include "thing.h"
#include "actor.h"
#include "core/fraction.h"
#include "foundation/exceptions.h"
#include "foundation/value_map.h"

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
}

ThingReference::~ThingReference()
{
    if (_number > 0) witness().tell({ .deed = Deed::EndsReference, .number = _number });
}

void ThingReference::recognize(int thing)
{
    if (_thing == thing) return;
    if (_thing >= 0) violated("a reference stands for two objects");
    _thing = thing;
    witness().tell({ .deed = Deed::Recognizes, .number = _number, .other = thing });
}

void ThingReference::onDeath()
{
    if (std::exchange(_hasDied, true)) violated("a death was told twice");
    if (!dead()) violated("a death was told of an object that is not dead");
    witness().tell({ .deed = Deed::HearsDeath, .number = _number });
}

void ThingReference::onEvent(const fn::String&, const fn::Value& argument)
{
    const int number = argument.to<int>();
    if (number <= _lastEvent) violated("events of one object came out of order, or twice");
    _lastEvent = number;
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
    answer(context, static_cast<Ask>(name.toInt(0, 10, nullptr)), call, argument);
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
    case Ask::Event: broadcastEvent("event", ++_events); return sendResult(context, call);
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
