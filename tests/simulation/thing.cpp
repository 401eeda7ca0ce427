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

fn::Duration someTime() { return fn::Duration::milliseconds(Truth::current().choose(200)); }

} // namespace

ThingReference::ThingReference(ipc::ObjectReferenceInitializer& initializer) : CallableObjectReference(initializer)
{
    if (!initializer.manager) return;
    process = Process::current();
    Truth::current().madeReference(*this);
    objectDeadSignal()
        .connect([this] {
            if (std::exchange(hasDied, true)) Truth::current().violated("a death was told twice");
            Truth::current().referenceDied(*this);
        })
        .detach();
}

ThingReference::~ThingReference()
{
    if (process) Truth::current().referenceEnded(*this);
}

void ThingReference::onEvent(const fn::String&, const fn::Value& argument)
{
    const int number = argument.to<int>();
    if (number <= lastEvent) Truth::current().violated("events of one object came out of order, or twice");
    lastEvent = number;
}

Thing::Thing(ipc::Worker& worker) : CallableObjectInstance(worker), number(Truth::current().madeThing(objectId())) { }

Thing::~Thing() { Truth::current().thingEnded(number); }

fn::AutoPtr<ipc::ObjectReference> Thing::createReference(ipc::ObjectReferenceInitializer& initializer)
{
    auto reference = fn::makeAuto<ThingReference>(initializer);
    reference->thing = number;
    return reference;
}

fn::Value Thing::asValue()
{
    Truth::current().sent(number);
    return fn::Value::map({ { "number", number }, { "object", fn::AutoPtr<Thing>(this) } });
}

fn::AutoPtr<ThingReference> thingIn(const fn::Value& value)
{
    auto reference = value.get("object").object<ThingReference>();
    if (!reference) return reference;
    const int number = value.get("number").to<int>();
    if (reference->thing >= 0 && reference->thing != number)
        Truth::current().violated("a reference stands for two objects");
    reference->thing = number;
    return reference;
}

void Thing::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    const int call = argument.at("call").to<int>();
    Truth::current().arrived(call);
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
            Truth::current().fulfilled(inner, result);
            self->sendResult(context, call);
        },
        [self = fn::AutoPtr(this), context, inner](std::exception_ptr failure) {
            Truth::current().rejected(inner, failure);
            self->sendError(context, failure);
        });
}

} // namespace simulated
