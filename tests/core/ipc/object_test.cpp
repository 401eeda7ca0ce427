// Objects between two workers through a real hub: what the simulated application does not show. What can break here: an error
// that loses its class or details, an answer that is none, a reference that acts while it is made, anything that outlives its
// worker or its loop.
#include "base/exceptions.h"
#include "core/ipc/limits.h"
#include "core/services/fraction.h"
#include "hub_fixture.h"
#include "support/expectations.h"

namespace {

using namespace test;

class ObjectTest : public HubTest {
protected:
    ~ObjectTest() override { service->calls.clear(); } // An argument may hold the service itself.

    Outcome call(const fn::AutoPtr<ServiceReference>& target, const char* name, const Value& argument = {})
    {
        return outcome([&] { return target->callMethod(name, argument); });
    }

    std::unique_ptr<Client> owner = client("Owner");
    std::unique_ptr<Client> user = client("User");
    fn::AutoPtr<Service> service = offer(*owner);
    fn::AutoPtr<ServiceReference> reference = findInstance<ServiceReference>(loop, *user->worker);
    fn::AutoPtr<ServiceReference> local = fn::dynamicCast<ServiceReference>(service->localReference());
};

/// An instance that speaks while it is being made, which may fail.
class Talker final : public Service {
public:
    explicit Talker(ipc::Worker& worker, bool fails) : Service(worker)
    {
        broadcastEvent("born", 1);
        if (fails) throw std::runtime_error("no");
    }
};

} // namespace

TEST_F(ObjectTest, ValuesAndErrorsArriveAsWhatTheyWereWithAllDetails)
{
    const auto argument = Value::map({ { "nil", {} }, { "bytes", fn::ByteArray(std::string(100'000, 'b')) },
        { "fraction", core::Fraction(16, 9) }, { "list", Value::array({ 1, -2.5, true, "\xc3\xa4" }) } });
    for (const auto& target : { reference, local }) EXPECT_EQ(call(target, "echo", argument).value(), argument);
    const auto made =
        fn::with(fn::RangeException("out of it"), fn::PathInfo { "/some/path" }, fn::WinErrorInfo { 0xdeadbeef },
            fn::ErrnoInfo { 2 }, fn::UVErrnoInfo { -3 }, fn::ErrorCodeInfo { 9 }, fn::DetailInfo { "why" });
    service->answer = [&](const Service::Call& call) { service->sendError(call.context, made); };
    const auto outcome = call(reference, "record");
    EXPECT_EQ(outcome.error(), "RangeException: out of it");
    try {
        std::rethrow_exception(outcome.failure());
    } catch (const fn::Exception& exception) {
        EXPECT_EQ(fn::String(exception.what()), fn::String(made.what()));
        EXPECT_EQ(*exception.find<fn::CallInfo>(), "test::ServiceReference.record");
        EXPECT_FALSE(exception.find<fn::ResolvedStackTraceInfo>()->frames.empty());
    }
}

TEST_F(ObjectTest, EachWayToAnswerEndsTheCallInAnotherWorkerAndInTheOwn)
{
    Value deep;
    for (int i = 0; i < 512; ++i) deep = Value::array({ deep });
    const auto foreign = fn::makeAuto<Service>(*user->worker);
    const auto record = Value::map({ { "TYPE", "FN_EXCEPTION" }, { "CLASS_NAME", "NoSuchClass" }, { "MESSAGE", "m" },
        { "STACK_TRACE", "nonsense" } });
    const auto code = Value::map({ { "code", 7 } });
    const fn::RangeException caught("caught");
    const std::exception& plain = caught;
    using Context = Service::CallContext;
    const auto& s = service;
    const std::pair<const char*, std::function<void(const Context&)>> rows[] {
        // An empty error: a result.
        { "", [&](const Context& to) { s->sendResult(to); } },
        { "DataFormatException: Value is nested too deeply", [&](const Context& to) { s->sendResult(to, deep); } },
        { "RuntimeException: An object of worker 2 (User) can not be sent by worker 1 (Owner)",
            [&](const Context& to) { s->sendResult(to, Value::array({ foreign })); } },
        { "RuntimeException: m", [&](const Context& to) { s->sendError(to, record); } },
        { "RuntimeException: {\"code\": 7}", [&](const Context& to) { s->sendError(to, code); } },
        { "RangeException: caught", [&](const Context& to) { s->sendError(to, plain); } },
        { "RuntimeException: Unknown Exception", [&](const Context& to) { s->sendError(to, std::exception_ptr()); } },
        { "RuntimeException: test::Service has no method answer",
            [&](const Context& to) { s->sendUnknownMethod(to, "answer"); } },
    };
    for (const auto& row : rows) {
        service->answer = [&](const Service::Call& made) { row.second(made.context); };
        for (const auto& target : { reference, local }) {
            const auto outcome = call(target, "answer");
            EXPECT_TRUE(outcome.isOver());
            EXPECT_EQ(outcome.error(), row.first) << "row " << &row - rows << (target->local() ? ", local" : "");
        }
    }
    // Nobody waits for an exception after the answer.
    const ExpectUnhandled expected;
    service->answer = [&](const Service::Call& made) {
        service->sendResult(made.context);
        throw fn::RangeException("late");
    };
    EXPECT_TRUE(call(reference, "answer").isFulfilled());
    EXPECT_EQ(expected.messages().size(), 1u);
}

TEST_F(ObjectTest, ACallersReactionToOneAnswerOrDeathMayEndOtherCalls)
{
    std::vector<fn::Promise<Value>> calls;
    std::vector<int> answers, deaths;
    loop.post([&] {
        for (int i = 0; i < 8; ++i) {
            calls.push_back(reference->callMethod("wait", i));
            const auto onAnswer = [&, i](Value&&) {
                answers.push_back(i);
                if (i == 7) calls[6].cancel(); // Its answer is on its way.
            };
            calls.back().then(onAnswer, [&, i](const std::exception_ptr&) {
                deaths.push_back(i);
                if (i != 1) return;
                calls[2].cancel(); // It has left the table, too, and is about to be rejected.
                reference.reset();
            });
        }
        calls[0].cancel();
    });
    settle();
    for (const int i : { 7, 6, 5 }) service->sendResult(service->calls[std::size_t(i)].context);
    settle();
    const fn::WeakPtr<ServiceReference> weak(reference);
    owner->worker->stop();
    settle();
    EXPECT_EQ(answers, (std::vector { 7, 5 }));
    EXPECT_EQ(deaths, (std::vector { 1, 3, 4 }));
    EXPECT_FALSE(weak.lock());
}

TEST_F(ObjectTest, ALocalReferenceNeverActsInsideItsCaller)
{
    EXPECT_EQ(service->localReference().get(), local.get()) << "the same one while it is held";
    loop.post([&] {
        local->callMethod("wait", service);
        service->broadcastEvent("tick", 1);
        EXPECT_TRUE(service->calls.empty() && local->events.empty());
    });
    settle();
    EXPECT_EQ(service->calls[0].argument.object<ipc::ObjectReference>().get(), local.get());
    EXPECT_EQ(local->events, (decltype(local->events) { { "tick", 1 } }));
}

TEST_F(ObjectTest, ConstructionIsFinishedBeforeAnythingLeaves)
{
    const auto talker = fn::makeAuto<Talker>(*owner->worker, false);
    const auto heard = fn::dynamicCast<ServiceReference>(talker->localReference());
    EXPECT_THROW(Talker(*owner->worker, true), std::runtime_error);
    settle();
    EXPECT_EQ(heard->events, (decltype(heard->events) { { "born", 1 } }));
}

TEST_F(ObjectTest, NobodyAnswersACallerWithoutAnIdToEverybody)
{
    // Before HELLO there is no id that an answer could be sent to, and somebody waits for a call of the same number.
    const auto waiter = client("Waiter");
    const auto waiting = outcome([&] { return waiter->worker->registry()->callMethod("never answered"); });
    const auto nameless = stranger();
    nameless->send(objectMessage(ipc::REGISTRY_OBJECT_ID, 0,
        Value::map({ { "TYPE", "CALL" }, { "METHOD_NAME", "setInstancesHidden" }, { "ARGUMENT", false },
            { "REQUEST_ID", 1 } })));
    settle();
    EXPECT_FALSE(waiting.isOver());
}

TEST_F(ObjectTest, WhatCannotBeSentRejectsItsCallAndKeepsNothing)
{
    Value deep;
    for (int i = 0; i < 600; ++i) deep = Value::array({ deep });
    EXPECT_EQ(call(reference, "echo", deep).error(), "DataFormatException: Value is nested too deeply");
    fn::ByteArray huge;
    huge.resizeUninitialized(ipc::limits::hubFrameBytes);
    EXPECT_TRUE(call(reference, "echo", huge).error().starts_with("RangeException: A message of "));
    const Client newcomer(loop, dispatcher->pipePath());
    const auto early = outcome([&] { return newcomer.worker->registry()->callMethod("x"); });
    EXPECT_EQ(early.error(), "RuntimeException: The worker is not connected yet") << "it could not be answered";
    EXPECT_EQ(call(reference, "echo", 1).value(), Value(1));
}

TEST_F(ObjectTest, WhatIsSaidLastArrives)
{
    loop.post([&] {
        reference->callMethod("last", fn::ByteArray(4'000'000u)); // More than a socket holds.
        user->worker->stop();
    });
    settle();
    EXPECT_EQ(service->calls.size(), 1u);
}
