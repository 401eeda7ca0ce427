// Objects between two workers through a real dispatcher. What can break here: an object that goes too early or never, a call
// that ends twice or not at all, an error that loses its class or details, a death that is half told, anything that
// outlives its worker or its loop.
#include "core/app_info.h"
#include "core/fraction.h"
#include "core/ipc/object/object_dead_exception.h"
#include "core/typed_byte_array.h"
#include "foundation/exceptions.h"
#include "foundation/time/clock.h"
#include "support/expectations.h"
#include "support/peer.h"
#include "support/worker.h"
#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <optional>

namespace {

using fn::Value;
using test::Outcome;
using test::Service;
using test::ServiceReference;

class ObjectTest : public testing::Test {
protected:
    void SetUp() override
    {
        core::AppInfo::initialize(core::AppInfo::App::Skyfold);
        dispatcher = std::make_unique<ipc::Dispatcher>(*loop, fn::Duration::seconds(30));
        dispatcher->bind();
        dispatcher->start();
        owner = join("Owner");
        user = join("User");
        user->worker->registerObjectReferenceClass<ServiceReference>();
        service = fn::makeAuto<Service>(*owner->worker);
    }

    void TearDown() override
    {
        reference.reset();
        service->calls.clear(); // An argument may hold the service itself.
        service.reset();
        user.reset();
        owner.reset();
        dispatcher.reset();
        loop.reset();
        EXPECT_EQ(Service::alive, 0) << "an object has outlived its loop";
    }

    std::unique_ptr<test::Client> join(const char* name)
    {
        auto client = std::make_unique<test::Client>(*loop, dispatcher->pipePath(), name);
        EXPECT_TRUE(test::runUntil(*loop, [&] { return client->isConnected(); }));
        return client;
    }

    /// Runs `action` on the loop, where promises may be chained.
    void onLoop(std::function<void()> action)
    {
        loop->post(std::move(action));
        test::runTurns(*loop, 2);
    }

    void offer()
    {
        Outcome registered;
        onLoop([&] { registered.observe(owner->worker->registry()->registerObject(service, 0)); });
        ASSERT_TRUE(test::runUntil(*loop, [&] { return registered.isOver(); }));
    }

    /// The user's reference to the service, found through the registry.
    void find()
    {
        offer();
        onLoop([&] {
            user->worker->registry()
                ->getInstance<ServiceReference>(fn::Duration::seconds(20))
                .then([this](fn::AutoPtr<ServiceReference>&& found) { reference = std::move(found); });
        });
        ASSERT_TRUE(test::runUntil(*loop, [&] { return static_cast<bool>(reference); }));
    }

    void call(ipc::CallableObjectReference& target, const char* name, const Value& argument, Outcome& outcome)
    {
        onLoop([&] { outcome.observe(target.callMethod(name, argument)); });
    }

    bool isOver(const Outcome& outcome)
    {
        return test::runUntil(*loop, [&] { return outcome.isOver(); });
    }

    fn::ManualClock clock;
    std::unique_ptr<fn::uv::Loop> loop = std::make_unique<fn::uv::Loop>(clock);
    std::unique_ptr<ipc::Dispatcher> dispatcher;
    std::unique_ptr<test::Client> owner;
    std::unique_ptr<test::Client> user;
    fn::AutoPtr<Service> service;
    fn::AutoPtr<ServiceReference> reference;
};

/// A ServiceReference that is made and dies as the test says.
class Moody final : public ServiceReference {
public:
    explicit Moody(ipc::ObjectReferenceInitializer& initializer) : ServiceReference(initializer)
    {
        if (onMade) onMade(*this);
    }
    fn::String className() const override { return "test::ServiceReference"; }
    static inline std::function<void(Moody&)> onMade;

private:
    ~Moody() override = default;
    void onObjectDead() override { throw std::runtime_error("no"); }
};

/// An instance that speaks while it is being made.
class Talker final : public Service {
public:
    explicit Talker(ipc::Worker& worker) : Service(worker)
    {
        broadcastEvent("born", 1);
        broadcastEvent("born", 2);
    }
};

class Failing final : public Service {
public:
    explicit Failing(ipc::Worker& worker) : Service(worker)
    {
        broadcastEvent("never", {});
        throw std::runtime_error("no");
    }
};

} // namespace

TEST_F(ObjectTest, CallsTravelWithEveryKindOfValue)
{
    find();
    ASSERT_FALSE(reference->local());
    const auto argument = Value::map({ { "nil", {} }, { "number", -7 }, { "text", "\xc3\xa4" },
        { "bytes", fn::ByteArray(std::string(100'000, 'b')) }, { "fraction", core::Fraction(16, 9) },
        { "labelled", core::TypedByteArray(fn::ByteArray("x"), "image/png") },
        { "list", Value::array({ 1, 2.5, true }) } });
    Outcome outcome;
    call(*reference, "echo", argument, outcome);
    ASSERT_TRUE(isOver(outcome)) << outcome.error();
    EXPECT_EQ(outcome.value().get("bytes"), argument.get("bytes"));
    EXPECT_EQ(outcome.value().get("fraction").boxed<core::Fraction>(), core::Fraction(16, 9));
    EXPECT_EQ(outcome.value().get("labelled").boxed<core::TypedByteArray>().mimeType(), "image/png");
    EXPECT_EQ(outcome.value().get("list"), argument.get("list"));
    EXPECT_EQ(service->calls[0].context, (Service::CallContext { user->worker->workerId(), 1 }));
    EXPECT_EQ(reference->className(), "test::ServiceReference");
    EXPECT_TRUE(reference->toString().startsWith("ObjectReference (test::ServiceReference, "));
}

TEST_F(ObjectTest, ErrorsArriveAsTheClassTheyWereWithAllDetails)
{
    find();
    service->answer = [this](const Service::Call& made) {
        if (made.name == "record") {
            service->sendError(made.context,
                fn::with(fn::RangeException("out of it"), fn::PathInfo { "/some/path" },
                    fn::WinErrorInfo { 0xdeadbeef }, fn::ErrnoInfo { 2 }, fn::UVErrnoInfo { -2 },
                    fn::ErrorCodeInfo { 9 }, fn::DetailInfo { "why" }));
        } else {
            service->sendError(made.context,
                Value::map({ { "TYPE", "FN_EXCEPTION" }, { "CLASS_NAME", "NoSuchClass" }, { "MESSAGE", "m" },
                    { "STACK_TRACE", "nonsense" } }));
        }
    };
    Outcome record, unknown;
    call(*reference, "record", {}, record);
    call(*reference, "unknown", {}, unknown);
    ASSERT_TRUE(isOver(unknown));
    try {
        std::rethrow_exception(record.failure());
        FAIL();
    } catch (const fn::RangeException& exception) {
        EXPECT_EQ(exception.message(), "out of it");
        EXPECT_EQ(*exception.find<fn::PathInfo>(), "/some/path");
        EXPECT_EQ(*exception.find<fn::WinErrorInfo>(), 0xdeadbeef);
        EXPECT_EQ(*exception.find<fn::ErrnoInfo>(), 2);
        EXPECT_EQ(*exception.find<fn::UVErrnoInfo>(), -2);
        EXPECT_EQ(*exception.find<fn::ErrorCodeInfo>(), 9);
        EXPECT_EQ(*exception.find<fn::DetailInfo>(), "why");
        EXPECT_EQ(*exception.find<fn::CallInfo>(), "test::ServiceReference.record");
        ASSERT_TRUE(exception.find<fn::ResolvedStackTraceInfo>());
        EXPECT_FALSE(exception.find<fn::ResolvedStackTraceInfo>()->frames.empty());
    }
    EXPECT_EQ(unknown.error(), "RuntimeException: m");
}

TEST_F(ObjectTest, EachWayToAnswerEndsTheCallInAnotherWorkerAndInTheOwn)
{
    find();
    struct Unshared final : fn::RefCountedObject { };
    Value deep;
    for (int i = 0; i < 512; ++i) deep = Value::array({ deep });
    const auto stranger = fn::makeAuto<Service>(*user->worker);
    struct Row {
        const char* error; // Empty: a result.
        std::function<void(const Service::CallContext&)> answer;
    };
    auto& s = *service;
    const Row rows[] {
        { "", [&](const auto& call) { s.sendResult(call); } },
        { "DataFormatException: Value is nested too deeply", [&](const auto& call) { s.sendResult(call, deep); } },
        { "DataFormatException: Value is nested too deeply", [&](const auto& call) { s.sendError(call, deep); } },
        { "DataFormatException: Unsupported value type",
            [&](const auto& call) { s.sendResult(call, fn::makeAuto<Unshared>()); } },
        { "RuntimeException: An object of worker 2 (User) can not be sent by worker 1 (Owner)",
            [&](const auto& call) { s.sendResult(call, Value::array({ stranger })); } },
        { "RuntimeException: nil", [&](const auto& call) { s.sendError(call, {}); } },
        { "RuntimeException: nil", [&](const auto& call) { s.sendError(call, nullptr); } },
        { "RuntimeException: nil", [&](const auto& call) { s.sendError(call); } },
        { "RuntimeException: text", [&](const auto& call) { s.sendError(call, "text"); } },
        { "RuntimeException: plain", [&](const auto& call) { s.sendError(call, std::runtime_error("plain")); } },
        { "RangeException: caught",
            [&](const auto& call) {
                const fn::RangeException exception("caught");
                s.sendError(call, static_cast<const std::exception&>(exception));
            } },
        { "RuntimeException: Unknown Exception", [&](const auto& call) { s.sendError(call, std::exception_ptr()); } },
        { "RuntimeException: Unknown Exception",
            [&](const auto& call) { s.sendError(call, std::make_exception_ptr(5)); } },
        { "RangeException: thrown", [](const auto&) { throw fn::RangeException("thrown"); } },
        { "RuntimeException: test::Service has no method answer",
            [&](const auto& call) { s.sendUnknownMethod(call, "answer"); } },
    };
    const auto local = fn::dynamicCast<ServiceReference>(service->localReference());
    for (const auto& row : rows) {
        service->answer = [&](const Service::Call& made) { row.answer(made.context); };
        for (auto* target : { reference.get(), local.get() }) {
            const auto outcome = test::outcomeOf(*loop, [&] { return target->callMethod("answer"); });
            EXPECT_EQ(outcome.error(), row.error) << &row - rows << (target->local() ? " local" : "");
        }
    }
    // Nobody waits for an exception after the answer, or without a request.
    const test::ExpectUnhandled expected;
    service->answer = [&](const Service::Call& made) {
        service->sendResult(made.context);
        throw fn::RangeException("late");
    };
    EXPECT_TRUE(test::outcomeOf(*loop, [&] { return reference->callMethod("answer"); }).isFulfilled());
    onLoop([&] { local->sendMessage(Value::map({ { "TYPE", "CALL" }, { "METHOD_NAME", "answer" } })); });
    EXPECT_EQ(expected.messages().size(), 2u);
    std::optional<Service::CallContext> outer; // Answered by a call that comes while it runs the loop.
    service->answer = [&](const Service::Call& made) {
        if (outer) return service->sendResult(*std::exchange(outer, {}));
        outer = made.context;
        local->callMethod("within");
        test::runUntil(*loop, [&] { return !outer; });
        throw fn::RangeException("late");
    };
    EXPECT_TRUE(test::outcomeOf(*loop, [&] { return reference->callMethod("answer"); }).isFulfilled());
    EXPECT_EQ(expected.messages().size(), 3u);
}

TEST_F(ObjectTest, AReferenceMayUseItselfWhileItIsMadeOrFailItsMessage)
{
    find();
    const auto given = fn::makeAuto<Service>(*owner->worker);
    const auto taken = fn::makeAuto<Service>(*user->worker);
    service->answer = [&](const Service::Call& made) { service->sendResult(made.context, given); };
    Outcome early;
    Moody::onMade = [&](Moody& made) {
        const fn::AutoPtr self(&made);
        if (fn::RunLoop::currentLoop()) early.observe(made.callMethod("echo", 1));
    };
    for (auto* client : { user.get(), owner.get() }) client->worker->registerObjectReferenceClass<Moody>();
    auto got = test::outcomeOf(*loop, [&] { return reference->callMethod("give"); });
    ASSERT_TRUE(isOver(early));
    EXPECT_EQ(early.value(), Value(1));
    EXPECT_TRUE(got.value().object<Moody>());
    got.value() = {};
    early = Outcome();
    test::runTurns(*loop, 40);

    Moody::onMade = [](Moody& made) {
        static_cast<void>(fn::AutoPtr(&made));
        throw fn::RangeException("no");
    };
    for (const auto& argument : { Value(), Value(taken) }) {
        const auto failed = test::outcomeOf(*loop, [&] { return reference->callMethod("give", argument); });
        EXPECT_EQ(failed.error(), "RangeException: no");
    }
    Moody::onMade = nullptr;
    test::runTurns(*loop, 40);
    EXPECT_EQ(service->calls.size(), 2u) << "the last one did not arrive";
    for (const auto& each : { given, taken }) EXPECT_EQ(each->referenceCount(), 2u) << "what was counted is released";
}

TEST_F(ObjectTest, CancellingReachesTheOwnerAndALateAnswerIsIgnored)
{
    find();
    Outcome outcome;
    fn::Promise<Value> promise;
    onLoop([&] {
        promise = reference->callMethod("wait", 1);
        outcome.observe(promise);
    });
    ASSERT_TRUE(test::runUntil(*loop, [&] { return service->calls.size() == 1; }));
    promise.cancel();
    ASSERT_TRUE(test::runUntil(*loop, [&] { return service->cancelled.size() == 1; }));
    EXPECT_EQ(service->cancelled[0], service->calls[0].context);
    service->sendResult(service->calls[0].context, "late");
    Outcome next;
    call(*reference, "echo", "next", next);
    ASSERT_TRUE(isOver(next));
    EXPECT_EQ(next.value(), Value("next"));
    EXPECT_FALSE(outcome.isOver());
    promise.cancel();
    test::runTurns(*loop);
    EXPECT_EQ(service->cancelled.size(), 1u);
}

TEST_F(ObjectTest, EachOfManyCallsEndsOnceInWhateverOrderAndWhateverItsUserDoes)
{
    find();
    constexpr int count = 5000;
    std::vector<fn::Promise<Value>> calls;
    std::map<int, int> fulfilled;
    std::vector<int> rejected;
    onLoop([&] {
        for (int i = 0; i < count; ++i) {
            calls.push_back(reference->callMethod("wait", i));
            calls.back().then(
                [&, i](Value&& result) {
                    ++fulfilled[i];
                    EXPECT_EQ(result, Value(i));
                    if (i == 4002) calls[4001].cancel(); // Its answer is on its way.
                },
                [&, i](const std::exception_ptr&) {
                    rejected.push_back(i);
                    if (i != 1) return;
                    calls[2].cancel(); // It has left the table, too, and is about to be rejected.
                    reference.reset();
                });
        }
        for (int i = 0; i < count; i += 5) calls[static_cast<std::size_t>(i)].cancel();
    });
    ASSERT_TRUE(test::runUntil(*loop, [&] { return service->cancelled.size() == count / 5; }));
    for (auto made = service->calls.rbegin(); made->argument != Value(2500); ++made) {
        service->sendResult(made->context, made->argument);
    }
    ASSERT_TRUE(test::runUntil(*loop, [&] { return fulfilled.contains(2501); }));
    EXPECT_EQ(fulfilled.size(), 1999u); // Of 2501 to 4999 without every fifth and 4001.
    for (const auto& [call, times] : fulfilled) EXPECT_EQ(times, 1) << call;
    const fn::WeakPtr<ServiceReference> weak(reference);
    owner->worker->stop();
    ASSERT_TRUE(test::runUntil(*loop, [&] { return !rejected.empty(); }));
    EXPECT_EQ(rejected.size(), 1999u); // Of 1 to 2499 without every fifth and the second.
    EXPECT_TRUE(std::ranges::is_sorted(rejected));
    EXPECT_FALSE(weak.lock());
}

TEST_F(ObjectTest, EventsReachEveryHolderAndTheLocalReference)
{
    find();
    const auto local = fn::dynamicCast<ServiceReference>(service->localReference());
    EXPECT_EQ(service->localReference().get(), local.get()) << "the same one while it is held";
    service->broadcastEvent("tick", Value::map({ { "from", service } }));
    EXPECT_TRUE(local->events.empty()) << "never inside the sender's call";
    ASSERT_TRUE(test::runUntil(*loop, [&] { return reference->events.size() == 1; }));
    ASSERT_EQ(local->events.size(), 1u);
    EXPECT_EQ(local->events[0].second.get("from").object<ipc::ObjectReference>().get(), local.get())
        << "a receiver sees a reference, not the instance";
    EXPECT_EQ(reference->events[0].second.get("from").object<ipc::ObjectReference>().get(), reference.get());
    service->postEvent(user->worker->workerId(), "only", 1);
    ASSERT_TRUE(test::runUntil(*loop, [&] { return reference->events.size() == 2; }));
    EXPECT_EQ(local->events.size(), 1u);
    local->events.clear(); // They hold the references that hold them.
    reference->events.clear();
}

TEST_F(ObjectTest, LocalCallsAnswerOnALaterTurnLikeRemoteOnes)
{
    const auto local = fn::dynamicCast<ServiceReference>(service->localReference());
    ASSERT_TRUE(local->local());
    Outcome echo, pending;
    onLoop([&] {
        echo.observe(local->callMethod("echo", service));
        EXPECT_TRUE(service->calls.empty());
        pending.observe(local->callMethod("wait", {}));
    });
    ASSERT_TRUE(isOver(echo));
    EXPECT_EQ(echo.value().object<ipc::ObjectReference>().get(), local.get());
    EXPECT_FALSE(pending.isOver());
}

TEST_F(ObjectTest, AnInstanceLivesWhileAnotherWorkerHoldsIt)
{
    // Handed over by call, three times, so that the registry holds nothing.
    find();
    service->answer = [this](const Service::Call& made) {
        static fn::AutoPtr<Service> given;
        if (made.name == "make") given = fn::makeAuto<Service>(*owner->worker);
        service->sendResult(made.context, given);
        if (made.name == "last") given.reset();
    };
    Outcome outcomes[3];
    call(*reference, "make", {}, outcomes[0]);
    call(*reference, "again", {}, outcomes[1]);
    call(*reference, "last", {}, outcomes[2]);
    ASSERT_TRUE(isOver(outcomes[2]));
    auto held = outcomes[0].value().object<ServiceReference>();
    EXPECT_EQ(outcomes[2].value().object<ServiceReference>().get(), held.get());
    test::runTurns(*loop);
    EXPECT_EQ(Service::alive, 2) << "the user's reference keeps it";
    for (auto& outcome : outcomes) outcome.value() = {};
    Outcome echo;
    held->callMethod("ignored", {}).cancel();
    call(*held, "echo", 5, echo);
    ASSERT_TRUE(isOver(echo));
    EXPECT_EQ(echo.value(), Value(5));
    held.reset();
    EXPECT_TRUE(test::runUntil(*loop, [&] { return Service::alive == 1; }))
        << "released once, with the count of all three";
}

TEST_F(ObjectTest, DeathEndsEveryCallAndIsToldOnce)
{
    user->worker->registerObjectReferenceClass<Moody>();
    find();
    user->worker->registerObjectReferenceClass<ServiceReference>();
    // A second object of the same worker: both references are dead before anybody hears of it.
    const auto second = fn::makeAuto<Service>(*owner->worker);
    service->answer = [&](const Service::Call& made) {
        if (made.name == "second") service->sendResult(made.context, second);
    };
    Outcome got, pending, otherPending;
    call(*reference, "second", {}, got);
    call(*reference, "wait", {}, pending);
    ASSERT_TRUE(isOver(got));
    const auto other = got.value().object<ServiceReference>();
    call(*other, "wait", {}, otherPending);
    int told = 0;
    for (const auto& each : { reference, other }) {
        each->objectDeadSignal()
            .connect([&] {
                ++told;
                EXPECT_TRUE(reference->dead() && other->dead());
            })
            .detach();
    }
    const test::ExpectUnhandled thrown; // By the one whose override calls no base class: it takes nothing from anybody.
    owner->worker->stop();
    ASSERT_TRUE(isOver(pending) && isOver(otherPending));
    EXPECT_EQ(thrown.messages().size(), 1u);
    EXPECT_EQ(pending.error(), "ObjectDeadException: ");
    EXPECT_EQ(otherPending.error(), "ObjectDeadException: ");
    EXPECT_EQ(told, 2);
    Outcome late;
    call(*reference, "echo", 1, late);
    EXPECT_EQ(late.error(), "ObjectDeadException: ");
    int immediately = 0;
    EXPECT_FALSE(reference->objectDeadSignal().connect([&] { ++immediately; }));
    EXPECT_EQ(immediately, 1);
}

TEST_F(ObjectTest, AReferenceToAnObjectOfADeadWorkerIsBornDead)
{
    find();
    // The user hands the reference to a third worker after the owner's death.
    const auto third = join("Third");
    third->worker->registerObjectReferenceClass<ServiceReference>();
    const auto box = fn::makeAuto<Service>(*third->worker);
    Outcome registered;
    onLoop([&] { registered.observe(third->worker->registry()->registerObject(box, 9)); });
    fn::AutoPtr<ServiceReference> way;
    onLoop([&] {
        user->worker->registry()
            ->getInstance<ServiceReference>(fn::Duration::seconds(20))
            .then([&](fn::AutoPtr<ServiceReference>&& found) { way = std::move(found); });
    });
    ASSERT_TRUE(test::runUntil(*loop, [&] { return static_cast<bool>(way); }));
    owner->worker->stop();
    ASSERT_TRUE(test::runUntil(*loop, [&] { return reference->dead(); }));
    bool bornDead = false;
    box->answer = [&](const Service::Call& made) {
        const auto arrived = made.argument.object<ServiceReference>();
        bornDead = arrived && arrived->dead();
        box->sendResult(made.context, true);
    };
    Outcome outcome;
    const test::ExpectAssertions unbacked; // The dispatcher has forgotten what the dead owner sent.
    call(*way, "take", reference, outcome);
    ASSERT_TRUE(isOver(outcome)) << outcome.error();
    EXPECT_TRUE(bornDead);
    box->calls.clear();
}

TEST_F(ObjectTest, ConstructionIsFinishedBeforeAnythingLeaves)
{
    find();
    const auto talker = fn::makeAuto<Talker>(*owner->worker);
    const auto local = fn::dynamicCast<ServiceReference>(talker->localReference());
    ASSERT_TRUE(test::runUntil(*loop, [&] { return local->events.size() == 2; }));
    EXPECT_EQ(local->events[0].second, Value(1));
    EXPECT_EQ(local->events[1].second, Value(2));
    EXPECT_THROW(Failing(*owner->worker), std::runtime_error);
    fn::makeAuto<Service>(*owner->worker); // Nobody keeps it.
    EXPECT_EQ(Service::alive, 3) << "not before the loop's next turn";
    test::runTurns(*loop);
    EXPECT_EQ(Service::alive, 2);
}

TEST_F(ObjectTest, NobodyAnswersACallerWithoutAnIdToEverybody)
{
    // Before HELLO there is no id that an answer could be sent to, and the user waits for a call of the same number.
    Outcome waiting;
    onLoop(
        [&] { waiting.observe(user->worker->registry()->getInstance<ServiceReference>(fn::Duration::seconds(20))); });
    test::Peer stranger(*loop, dispatcher->pipePath());
    stranger.send(test::objectMessage(ipc::REGISTRY_OBJECT_ID, 0,
        Value::map({ { "TYPE", "CALL" }, { "METHOD_NAME", "setInstancesHidden" }, { "ARGUMENT", false },
            { "REQUEST_ID", 1 } })));
    ASSERT_TRUE(test::runUntil(*loop, [&] { return stranger.isConnected() && stranger.stream()->queuedBytes() == 0; }));
    test::runTurns(*loop, 40);
    EXPECT_FALSE(waiting.isOver());
    offer();
    ASSERT_TRUE(isOver(waiting));
    EXPECT_TRUE(waiting.value().object<ServiceReference>());
}

TEST_F(ObjectTest, WhatCannotBeSentRejectsItsCallAndKeepsNothing)
{
    find();
    Value deep;
    for (int i = 0; i < 600; ++i) deep = Value::array({ deep });
    Outcome outcome;
    call(*reference, "echo", deep, outcome);
    EXPECT_EQ(outcome.error().substr(0, 20), "DataFormatException:");
    Outcome early;
    test::Client newcomer(*loop, dispatcher->pipePath());
    onLoop([&] {
        early.observe(newcomer.worker->registry()->getInstance<ServiceReference>(fn::Duration::seconds(1)));
        EXPECT_FALSE(newcomer.isConnected());
    });
    EXPECT_TRUE(early.isOver()) << "without an id it could not be answered";
    Outcome next;
    call(*reference, "echo", 1, next);
    ASSERT_TRUE(isOver(next));
}

TEST_F(ObjectTest, ObjectsMayOutliveTheirWorkerInEveryOrder)
{
    find();
    Outcome pending, local;
    call(*reference, "wait", {}, pending);
    const auto localReference = fn::dynamicCast<ServiceReference>(service->localReference());
    call(*localReference, "wait", {}, local);
    user.reset();
    EXPECT_EQ(pending.error(), "ObjectDeadException: ");
    owner.reset();
    EXPECT_EQ(local.error(), "ObjectDeadException: ");
    service->broadcastEvent("nobody", 1);
    service->postEvent(3, "nobody", 1);
    reference->callMethod("nobody", 1);
    EXPECT_THROW(service->worker(), fn::NullPointerException);
    dispatcher.reset();
    test::runTurns(*loop);
}
