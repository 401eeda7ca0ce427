// The registry and the bus through a real dispatcher. What can break here: the wrong one of several registrations, a waiter
// answered twice or never, an instance that cannot be hidden or shown again, sticky bodies lost, kept twice or without bound.
#include "core/app_info.h"
#include "core/ipc/limits.h"
#include "core/ipc/message_bus.h"
#include "core/ipc/registry_impl.h"
#include "foundation/exceptions.h"
#include "foundation/system/environment.h"
#include "foundation/time/clock.h"
#include "support/expectations.h"
#include "support/log_capture.h"
#include "support/peer.h"
#include "support/worker.h"
#include <gtest/gtest.h>

namespace {

using fn::Value;
using test::Outcome;
using test::Service;
using test::ServiceReference;

class RegistryTest : public testing::Test {
protected:
    void SetUp() override
    {
        core::AppInfo::initialize(core::AppInfo::App::Skyfold);
        fn::MessageBus::instance().postStickyMessage("com.x.0", "before the hub was ready");
        early = dispatcher.worker().registry();
        dispatcher.bind();
        dispatcher.start();
        a = join("A");
        b = join("B");
        user = join("User");
    }

    std::unique_ptr<test::Client> join(const char* name)
    {
        auto client = std::make_unique<test::Client>(loop, dispatcher.pipePath(), name);
        client->worker->registerObjectReferenceClass<ServiceReference>();
        client->worker->registerObjectReferenceClass<ipc::MessageBus>();
        EXPECT_TRUE(test::runUntil(loop, [&] { return client->isConnected(); }));
        return client;
    }

    fn::AutoPtr<Service> offer(test::Client& client, int priority)
    {
        auto service = fn::makeAuto<Service>(*client.worker);
        Outcome registered;
        loop.post([&] { registered.observe(client.worker->registry()->registerObject(service, priority)); });
        EXPECT_TRUE(test::runUntil(loop, [&] { return registered.isOver(); }));
        return service;
    }

    Outcome look(fn::Duration timeout = fn::Duration::seconds(20))
    {
        Outcome outcome;
        loop.post(
            [=, this]() mutable { outcome.observe(user->worker->registry()->getInstance<ServiceReference>(timeout)); });
        settle();
        return outcome;
    }

    static ipc::ObjectId found(Outcome& outcome)
    {
        return outcome.value().isObject() ? outcome.value().object<ipc::ObjectReference>()->objectId() : ~0ull;
    }

    void hide(test::Client& client, bool hidden)
    {
        Outcome done;
        loop.post([&] { done.observe(client.worker->registry()->callMethod("setInstancesHidden", hidden)); });
        ASSERT_TRUE(test::runUntil(loop, [&] { return done.isOver(); }));
    }

    void settle() { test::runTurns(loop, 40); }

    fn::ManualClock clock;
    fn::uv::Loop loop { clock };
    ipc::Dispatcher dispatcher { loop, fn::Duration::seconds(300) };
    fn::AutoPtr<ipc::Registry> early; // As a service of the main process may keep it.
    std::unique_ptr<test::Client> a, b, user;
};

using RegistryDeathTest = RegistryTest;

} // namespace

TEST_F(RegistryTest, GivesTheHighestPriorityAndOfEqualOnesTheLatest)
{
    const auto high = offer(*a, 5);
    const auto low = offer(*b, 0);
    auto outcome = look();
    EXPECT_EQ(found(outcome), high->objectId());
    const auto later = offer(*b, 5);
    outcome = look();
    EXPECT_EQ(found(outcome), later->objectId());
    b->worker->stop();
    settle();
    outcome = look();
    EXPECT_EQ(found(outcome), high->objectId()) << "the dead leave the table";
    EXPECT_NE(low->objectId(), high->objectId());
}

TEST_F(RegistryTest, WaitersAreAnsweredOnceByWhoComesFirst)
{
    Outcome waiting[3] { look(), look(), look(fn::Duration::seconds(1)) };
    for (auto& outcome : waiting) EXPECT_FALSE(outcome.isOver());
    clock.advance(fn::Duration::seconds(1));
    settle();
    ASSERT_TRUE(waiting[2].isOver());
    EXPECT_EQ(waiting[2].error(),
        "OperationTimedOutException: Object of class test::ServiceReference is not available. Try restarting Skyfold");
    const auto service = offer(*a, -3);
    settle();
    EXPECT_EQ(found(waiting[0]), service->objectId());
    EXPECT_EQ(found(waiting[1]), service->objectId());
    clock.advance(fn::Duration::seconds(60));
    settle();
    EXPECT_TRUE(waiting[0].isFulfilled());
    auto negative = look(fn::Duration::seconds(-5));
    EXPECT_TRUE(negative.isFulfilled()) << "what is there is found without waiting";
}

TEST_F(RegistryDeathTest, AHubWithoutANameAnswersWhoWaitsAllTheSame)
{
    GTEST_FLAG_SET(
        death_test_style, "threadsafe"); // A process of its own, in which nobody has known the application yet.
    EXPECT_EXIT(
        {
            fn::Environment::unset("ManagerAppType");
            const auto outcome = look(fn::Duration::seconds(1));
            clock.advance(fn::Duration::seconds(1));
            settle();
            std::fputs(outcome.error().c_str(), stderr);
            std::_Exit(0);
        },
        testing::ExitedWithCode(0),
        "OperationTimedOutException: Object of class test::ServiceReference is not available$");
}

TEST_F(RegistryTest, ALookUpGivesTheClassThatItAsksForOrFails)
{
    // Nobody has registered the class in the hub when the object is, so that the registry's own reference is a plain one.
    test::Client bare(loop, dispatcher.pipePath());
    auto service = offer(*a, 0);
    const fn::WeakPtr<Service> weak(service);
    service.reset();
    for (auto* worker : { bare.worker.get(), &dispatcher.worker() }) {
        const auto first = test::findInstance<ServiceReference>(loop, *worker);
        const auto second = test::findInstance<ServiceReference>(loop, *worker);
        ASSERT_TRUE(first);
        EXPECT_EQ(first.get(), second.get());
        EXPECT_TRUE(test::outcomeOf(loop, [&] { return first->callMethod("echo"); }).isFulfilled());
    }
    settle();
    EXPECT_TRUE(weak.lock()) << "the registry still has it";
    a.reset();
    EXPECT_TRUE(test::runUntil(loop, [&] { return dispatcher.registryImpl()->registrationCount() == 1; }))
        << "the entry goes with its provider, though another reference has taken the place of the registry's";

    struct Pretender final : Service {
        using Service::Service;
        struct Reference final : ipc::CallableObjectReference {
            using CallableObjectReference::CallableObjectReference;
            fn::String className() const override { return "test::ServiceReference"; }
        };
        fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override
        {
            return fn::makeAuto<Reference>(initializer);
        }
    };
    const auto pretender = fn::makeAuto<Pretender>(*user->worker);
    const auto offered = test::outcomeOf(loop, [&] { return user->worker->registry()->registerObject(pretender, 0); });
    const auto error = look().error();
    EXPECT_TRUE(error.starts_with("RuntimeException: The object found as test::ServiceReference is of class "))
        << error;
    EXPECT_TRUE(error.find("Pretender::Reference") != std::string::npos) << error;

    auto refused = fn::makeAuto<Service>(*b->worker);
    const fn::WeakPtr weakly(refused);
    test::outcomeOf(loop, [&] { return user->worker->registry()->registerObject(refused, 0); });
    refused.reset();
    settle();
    EXPECT_FALSE(weakly.lock()) << "another worker's object is not kept";
}

TEST_F(RegistryTest, HiddenInstancesAreSkippedUntilTheyAreShownAgain)
{
    const auto better = offer(*a, 5);
    hide(*a, true);
    auto nobody = look();
    EXPECT_FALSE(nobody.isOver());
    const auto other = offer(*b, 0);
    settle();
    EXPECT_EQ(found(nobody), other->objectId());
    auto second = look();
    EXPECT_EQ(found(second), other->objectId());
    hide(*b, true);
    auto waiting = look();
    EXPECT_FALSE(waiting.isOver());
    hide(*a, false);
    settle();
    EXPECT_EQ(found(waiting), better->objectId());
    hide(*a, false); // Showing what is not hidden answers nobody anew.
}

TEST_F(RegistryTest, HidingConcernsAllOfOneOwnerAndNobodyElse)
{
    // Several of each owner in one class, among each other by priority.
    const auto a9 = offer(*a, 9);
    const auto b7 = offer(*b, 7);
    const auto a5 = offer(*a, 5);
    const auto b3 = offer(*b, 3);
    const auto expect = [&](const fn::AutoPtr<Service>& service, const char* when) {
        auto outcome = look();
        EXPECT_EQ(found(outcome), service->objectId()) << when;
    };
    hide(*user, true);
    expect(a9, "who has none has hidden none");
    hide(*b, true);
    expect(a9, "others are hidden");
    hide(*a, true);
    auto waiting = look();
    EXPECT_FALSE(waiting.isOver());
    hide(*b, false);
    settle();
    EXPECT_EQ(found(waiting), b7->objectId()) << "the best of those shown again";
    b->worker->stop();
    settle();
    hide(*a, false);
    expect(a9, "another one's registrations have ended meanwhile");
    a->worker->stop();
    settle();
    const auto registry = dispatcher.registryImpl();
    EXPECT_EQ(registry->registrationCount(), 1u) << "the bus is left";
}

TEST_F(RegistryTest, OneOfManyWhoWaitDiesAndTheOthersAreAnswered)
{
    // Two of the dying one: for a class that others await, too, and for one of its own.
    const auto ask = [&](test::Client& client, const char* className, Outcome& outcome, bool isLast = false) {
        loop.post([&, className, isLast] {
            outcome.observe(client.worker->registry()->callMethod(
                "getInstance", Value::map({ { "className", className }, { "timeout", 60'000 } })));
            if (isLast) client.worker->stop();
        });
        settle();
    };
    Outcome before, dying, alone, behind, last;
    ask(*user, "test::ServiceReference", before);
    ask(*a, "test::ServiceReference", dying);
    ask(*a, "Nobody", alone);
    ask(*user, "test::ServiceReference", behind);
    const auto registry = dispatcher.registryImpl();
    ASSERT_EQ(registry->waiterCount(), 4u);
    ask(*a, "Nobody", last, true); // On its way to the registry when its caller dies.
    ASSERT_TRUE(test::runUntil(loop, [&] { return dispatcher.workers().size() == 3; }));
    settle();
    ASSERT_EQ(registry->waiterCount(), 2u);
    const auto service = offer(*b, 0);
    settle();
    EXPECT_EQ(found(before), service->objectId());
    EXPECT_EQ(found(behind), service->objectId());
    EXPECT_EQ(registry->waiterCount(), 0u);
    clock.advance(fn::Duration::seconds(61)); // Nobody's time-out is left to fire.
    settle();
    EXPECT_TRUE(before.isFulfilled());
}

TEST_F(RegistryTest, TheDeadWaitNoLongerAndBadArgumentsHarmNobody)
{
    test::Peer stranger(loop, dispatcher.pipePath());
    stranger.hello();
    ASSERT_TRUE(test::runUntil(loop, [&] { return stranger.id() != ipc::NO_WORKER_ID; }));
    const auto call = [&](const char* method, const Value& argument) {
        stranger.send(test::objectMessage(0, 0,
            Value::map(
                { { "TYPE", "CALL" }, { "METHOD_NAME", method }, { "ARGUMENT", argument }, { "REQUEST_ID", 1 } })));
    };
    call("getInstance", Value::map({ { "className", "test::ServiceReference" }, { "timeout", INT64_MAX } }));
    call("registerInstance", Value::map({ { "instance", {} } }));
    call("unknown", {});
    settle();
    EXPECT_EQ(stranger.count(ipc::type::MESSAGE), 1u) << "a missing object is answered, without effect";
    const fn::String tooLong(std::string(ipc::limits::classNameBytes + 1, 'x'));
    call("getInstance", Value::map({ { "className", tooLong }, { "timeout", INT64_MAX } }));
    settle();
    EXPECT_EQ(stranger.count(ipc::type::MESSAGE), 2u) << "refused at once";
    {
        const test::ExpectUnhandled expected;
        call("getInstance", Value::map({ { "className", "X" }, { "timeout", "soon" } }));
        settle();
        EXPECT_EQ(expected.messages().size(), 1u);
        EXPECT_EQ(stranger.count(ipc::type::MESSAGE), 2u) << "not answered";
    }
    stranger.close();
    settle();
    const auto service = offer(*a, 0);
    auto outcome = look();
    EXPECT_EQ(found(outcome), service->objectId());
}

TEST_F(RegistryTest, TheBusReachesEverybodyAndKeepsTheLatestStickyBodies)
{
    // One process has one bus: the hub's was there with it. B's comes later, and is asked by hand.
    const auto bus =
        test::outcomeOf(loop, [&] { return early->getInstance<ipc::MessageBus>(fn::Duration::seconds(20)); })
            .value()
            .object<ipc::MessageBus>();
    ASSERT_EQ(&fn::MessageBus::instance(), bus.get());
    std::vector<std::pair<fn::String, Value>> heard;
    const auto listener = bus->onMessage("com.x").connect(
        [&](const fn::String& name, const Value& body) { heard.emplace_back(name, body); });
    loop.post([] {
        auto& instance = fn::MessageBus::instance();
        instance.postMessage("com.x.plain", 1);
        instance.postStickyMessage("com.x.b", "old");
        instance.postStickyMessage("com.x.b", "new");
        instance.postStickyMessage("com.x.a", Value::map({ { "k", 1 } }));
        instance.postMessage("com.xy", "not for com.x");
    });
    ASSERT_TRUE(test::runUntil(loop, [&] { return heard.size() == 4; })) << "once each, by way of the relay";
    settle();
    EXPECT_EQ(heard.size(), 4u);
    EXPECT_EQ(fn::MessageBus::instance().getStickyMessage("com.x.b"), Value("new"));

    auto late = test::findInstance<ipc::MessageBus>(loop, *b->worker);
    Outcome stored;
    loop.post([&] { stored.observe(late->callMethod("getStickyMessages", {})); });
    ASSERT_TRUE(test::runUntil(loop, [&] { return stored.isOver(); }));
    const auto message = [](const char* name, const Value& body) {
        return Value::map({ { "namespace", name }, { "body", body } });
    };
    EXPECT_EQ(stored.value()[0], message("com.x.0", "before the hub was ready"));
    EXPECT_EQ(stored.value()[1], message("com.x.a", Value::map({ { "k", 1 } })));
    EXPECT_EQ(stored.value()[2], message("com.x.b", "new"));
    Outcome fetched;
    loop.post([&] { fetched.observe(bus->getStickyMessages()); });
    ASSERT_TRUE(test::runUntil(loop, [&] { return fetched.isOver(); }));
    EXPECT_EQ(heard.size(), 7u) << "a fetch delivers what is stored";

    // More than the relay may keep is refused, and nobody else loses anything.
    const test::LogCapture log(2);
    loop.post([] {
        fn::MessageBus::instance().postStickyMessage("com.x.large", fn::ByteArray(unsigned(ipc::limits::stickyBytes)));
        fn::MessageBus::instance().postMessage("com.x.after", {});
    });
    ASSERT_TRUE(test::runUntil(loop, [&] { return heard.size() == 8; }));
    EXPECT_EQ(heard.back().first, "com.x.after");
    EXPECT_TRUE(log.contains("Refusing the sticky message com.x.large"));
}
