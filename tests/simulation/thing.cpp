#include "thing.h"
#include "actor.h"
#include "base/exceptions.h"
#include "foundation/value_map.h"
#include <algorithm>

namespace simulated {

namespace {

void violated(const char* what) { tell({ .deed = Deed::Violates, .text = what }); }

/// No worker can send it.
struct Unsendable final : fn::RefCountedObject {
    fn::String toString() const override { return "unsendable"; }
};

} // namespace

ThingReference::ThingReference(ipc::ObjectReferenceInitializer& initializer) : CallableObjectReference(initializer)
{
    if (!initializer.host) return;
    if (!local() && !Witness::current().isResting() && choose(64) == 63)
        throw fn::RuntimeException("broken on purpose");
    _number = Witness::current().next(Numbered::References);
    tell({ .deed = Deed::MakesReference, .number = _number, .object = objectId(), .flag = local() });
    objectDeadSignal().connect([this] { onDeath(); }).detach();
    const fn::AutoPtr self(this); // As constructors may.
}

ThingReference::~ThingReference()
{
    if (_number > 0) tell({ .deed = Deed::EndsReference, .number = _number });
}

void ThingReference::recognize(int thing)
{
    if (_thing < 0) _thing = thing;
    tell({ .deed = Deed::Recognizes, .number = _number, .other = thing });
}

void ThingReference::onDeath()
{
    if (std::exchange(_hasDied, true)) violated("a death was told twice");
    if (!dead()) violated("a death was told of an object that is not dead");
    tell({ .deed = Deed::HearsDeath, .number = _number });
}

void ThingReference::onObjectDead()
{
    if (_number > 0 && choose(4) == 3) throw fn::RuntimeException("on purpose");
    CallableObjectReference::onObjectDead();
}

void ThingReference::onEvent(const fn::String&, const fn::Value& argument)
{
    tell({ .deed = Deed::HearsEvent, .number = _number, .value = argument.to<int>() });
}

Thing::Thing(ipc::Worker& worker) : CallableObjectInstance(worker), number(Witness::current().next(Numbered::Things))
{
    tell({ .deed = Deed::MakesThing, .number = number, .object = objectId() });
}

Thing::~Thing() { tell({ .deed = Deed::EndsThing, .number = number }); }

fn::AutoPtr<ipc::ObjectReference> Thing::createReference(ipc::ObjectReferenceInitializer& initializer)
{
    auto reference = fn::makeAuto<ThingReference>(initializer);
    reference->recognize(number);
    return reference;
}

fn::Value Thing::asValue()
{
    tell({ .deed = Deed::SendsThing, .number = number });
    return fn::Value::map({ { "number", number }, { "object", fn::AutoPtr<Thing>(this) } });
}

fn::AutoPtr<ThingReference> thingIn(const fn::Value& value)
{
    auto reference = value.get("object").object<ThingReference>();
    if (reference) reference->recognize(value.get("number").to<int>());
    return reference;
}

fn::Value bulk()
{
    static const fn::Value bytes(fn::ByteArray(std::string(300 * 1024, 'x')));
    return bytes;
}

void Thing::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    const int call = argument.at("call").to<int>();
    const bool hasObject = argument.get("thing").get("object").isObject();
    tell({ .deed = Deed::GetsCall, .number = call, .other = number, .flag = hasObject });
    const auto* const large = argument.find("bulk");
    if (large && *large != bulk()) violated("a large argument has changed on its way");
    _calls.emplace_back(context, call);
    answer(context, static_cast<Ask>(name.toInt(0, 10, nullptr)), call, argument);
}

void Thing::onMethodCallCancelled(const CallContext& context)
{
    const auto known = std::ranges::find(_calls.rbegin(), _calls.rend(), context, &std::pair<CallContext, int>::first);
    if (known != _calls.rend()) tell({ .deed = Deed::GetsCancel, .number = known->second });
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
    case Ask::Unencodable: return sendResult(context, fn::makeAuto<Unsendable>());
    case Ask::Event:
        tell({ .deed = Deed::Broadcasts, .number = number, .value = ++_events });
        broadcastEvent("event", _events);
        return sendResult(context, call);
    }
}

void Thing::answerLater(const CallContext& context, int call)
{
    const auto time = fn::Duration::milliseconds(choose(200));
    loop().schedule(time, [self = fn::AutoPtr(this), context, call] { self->sendResult(context, call); }).detach();
}

void Thing::callOn(const CallContext& context, int call, const fn::AutoPtr<ThingReference>& other)
{
    auto* const actor = Actor::inThisProcess();
    if (!other || !actor) return sendResult(context, call);
    actor->call(other, Ask::Echo)
        .second.then([self = fn::AutoPtr(this), context, call](fn::Value&&) { self->sendResult(context, call); },
            [self = fn::AutoPtr(this), context, call](std::exception_ptr failure) {
                tell({ .deed = Deed::LetsFail, .number = call });
                self->sendError(context, failure);
            });
}

} // namespace simulated
