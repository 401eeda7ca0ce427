// The registry and the bus through a real hub. What can break here: the wrong one of several registrations, a waiter answered
// twice or never, an instance that cannot be hidden or shown again, sticky bodies lost, kept twice or without bound.
#include "core/ipc/limits.h"
#include "core/ipc/message_bus.h"
#include "core/ipc/registry_impl.h"
#include "foundation/exceptions.h"
#include "foundation/system/environment.h"
#include "hub_fixture.h"
#include "support/expectations.h"
#include "support/log_capture.h"

namespace {

using namespace test;

class RegistryTest : public HubTest {
protected:
    void SetUp() override
    {
        HubTest::SetUp();
        a = client("A");
        b = client("B");
        user = client("User");
    }

    void TearDown() override
    {
        a.reset();
        b.reset();
        user.reset();
        HubTest::TearDown();
    }

    fn::AutoPtr<Service> offer(Client& client, int priority)
    {
        auto service = fn::makeAuto<Service>(*client.worker);
        outcome([&] { return client.worker->registry()->registerObject(service, priority); });
        return service;
    }

    Outcome look(fn::Duration bound = fn::Duration::seconds(20))
    {
        return outcome([&] { return user->worker->registry()->getInstance<ServiceReference>(bound); });
    }

    /// 0: it still waits.
    static ObjectId found(Outcome outcome)
    {
        return outcome.isFulfilled() ? outcome.value().object<ipc::ObjectReference>()->objectId() : 0;
    }

    void hide(Client& client, bool hidden)
    {
        EXPECT_TRUE(
            outcome([&] { return client.worker->registry()->callMethod("setInstancesHidden", hidden); }).isFulfilled());
    }

    std::unique_ptr<Client> a, b, user;
};

using RegistryDeathTest = RegistryTest;

class BusTest : public HubTest {
protected:
    void SetUp() override
    {
        fn::MessageBus::instance().postStickyMessage("com.x.0", "before the hub was ready");
        HubTest::SetUp();
    }
};

} // namespace

TEST_F(RegistryTest, GivesTheBestOfThoseThatAreShownAndWakesWhoWaitsForIt)
{
    // Several of each owner in one class, among each other by priority; and the later one first where it is the same.
    const auto a9 = offer(*a, 9), earlier = offer(*b, 7), b7 = offer(*b, 7), a5 = offer(*a, 5);
    Outcome waiting;
    struct Row {
        const char* what;
        std::function<void()> does;
        ObjectId expected;
        bool waits; // A look-up from before is answered only now.
    };
    const Row rows[] {
        { "the highest priority", [] {}, a9->objectId(), false },
        { "who has none has hidden none", [&] { hide(*user, true); }, a9->objectId(), false },
        { "others are hidden", [&] { hide(*b, true); }, a9->objectId(), false },
        { "all are hidden", [&] { hide(*a, true); }, 0, false },
        { "the best of those shown again, the later of two", [&] { hide(*b, false); }, b7->objectId(), true },
        { "what was shown already", [&] { hide(*b, false); }, b7->objectId(), false },
        { "the dead leave the table", [&] { b->worker->stop(); }, 0, false },
        { "the other ones' have ended meanwhile", [&] { hide(*a, false); }, a9->objectId(), true },
    };
    for (const auto& row : rows) {
        row.does();
        settle();
        EXPECT_EQ(found(look(fn::Duration())), row.expected) << row.what;
        if (row.waits) {
            EXPECT_EQ(found(waiting), row.expected) << row.what;
        }
        if (row.expected == 0) waiting = look(fn::Duration::seconds(20));
    }
    a->worker->stop();
    settle();
    EXPECT_EQ(dispatcher->registryImpl()->registrationCount(), 1u) << "the bus is left";
}

TEST_F(RegistryTest, WaitersAreAnsweredOnceByWhoComesFirst)
{
    Outcome waiting[3] { look(), look(), look(fn::Duration::seconds(1)) };
    for (auto& outcome : waiting) EXPECT_FALSE(outcome.isOver());
    outcome([&] { return b->worker->registry()->getInstance<ServiceReference>(fn::Duration::seconds(20)); });
    b->worker->stop();
    settle();
    EXPECT_EQ(dispatcher->registryImpl()->waiterCount(), 3u) << "the dead wait no longer";
    pass(fn::Duration::seconds(1));
    EXPECT_EQ(waiting[2].error(),
        "OperationTimedOutException: Object of class test::ServiceReference is not available. Try restarting Skyfold");
    const auto service = offer(*a, -3);
    for (const int i : { 0, 1 }) EXPECT_EQ(found(waiting[i]), service->objectId());
    EXPECT_EQ(dispatcher->registryImpl()->waiterCount(), 0u);
    pass(fn::Duration::seconds(60)); // Nobody's time-out is left to fire.
    EXPECT_TRUE(look(fn::Duration::seconds(-5)).isFulfilled()) << "what is there is found without waiting";
}

TEST_F(RegistryDeathTest, AHubWithoutANameAnswersWhoWaitsAllTheSame)
{
    GTEST_FLAG_SET(
        death_test_style, "threadsafe"); // A process of its own, in which nobody has known the application yet.
    EXPECT_EXIT(
        {
            fn::Environment::unset("ManagerAppType");
            const auto outcome = look(fn::Duration::seconds(1));
            pass(fn::Duration::seconds(1));
            std::fputs(outcome.error().c_str(), stderr);
            std::_Exit(0);
        },
        testing::ExitedWithCode(0),
        "OperationTimedOutException: Object of class test::ServiceReference is not available$");
}

TEST_F(RegistryTest, ALookUpGivesTheClassThatItAsksForOrFails)
{
    // Nobody has registered the class in the hub when the object is, so that the registry's own reference is a plain one.
    const Client bare(loop, dispatcher->pipePath());
    auto service = offer(*a, 0);
    const fn::WeakPtr<Service> weak(service);
    service.reset();
    for (auto* worker : { bare.worker.get(), &dispatcher->worker() }) {
        const auto first = findInstance<ServiceReference>(loop, *worker);
        const auto second = findInstance<ServiceReference>(loop, *worker);
        ASSERT_TRUE(first);
        EXPECT_EQ(first.get(), second.get());
        EXPECT_TRUE(outcome([&] { return first->callMethod("echo"); }).isFulfilled());
    }
    settle();
    EXPECT_TRUE(weak.lock()) << "the registry still has it";
    a.reset();
    settle();
    EXPECT_EQ(dispatcher->registryImpl()->registrationCount(), 1u)
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
    outcome([&] { return user->worker->registry()->registerObject(pretender, 0); });
    const auto error = look().error();
    EXPECT_TRUE(error.starts_with("RuntimeException: The object found as test::ServiceReference is of class "))
        << error;
    EXPECT_TRUE(error.find("Pretender::Reference") != std::string::npos) << error;

    auto refused = fn::makeAuto<Service>(*b->worker);
    const fn::WeakPtr weakly(refused);
    outcome([&] { return user->worker->registry()->registerObject(refused, 0); });
    refused.reset();
    settle();
    EXPECT_FALSE(weakly.lock()) << "another worker's object is not kept";
}

TEST_F(RegistryTest, BadArgumentsHarmNobody)
{
    const auto peer = join();
    const fn::String tooLong(std::string(ipc::limits::classNameBytes + 1, 'x'));
    struct Row {
        const char* what;
        const char* method;
        Value argument;
        std::size_t answers; // So far.
        std::size_t unhandled;
    };
    const Row rows[] {
        { "a time-out without end", "getInstance", Value::map({ { "className", "X" }, { "timeout", INT64_MAX } }), 0,
            0 },
        { "a missing object is answered, without effect", "registerInstance", Value::map({ { "instance", {} } }), 1,
            0 },
        { "an unknown method is not", "unknown", {}, 1, 0 },
        { "a name that is too long is refused at once", "getInstance",
            Value::map({ { "className", tooLong }, { "timeout", INT64_MAX } }), 2, 0 },
        { "what makes no sense is not answered", "getInstance",
            Value::map({ { "className", "X" }, { "timeout", "soon" } }), 2, 1 },
    };
    for (const auto& row : rows) {
        const ExpectUnhandled expected;
        peer->send(objectMessage(0, 0,
            Value::map({ { "TYPE", "CALL" }, { "METHOD_NAME", row.method }, { "ARGUMENT", row.argument },
                { "REQUEST_ID", 1 } })));
        settle();
        EXPECT_EQ(peer->count(type::MESSAGE), row.answers) << row.what;
        EXPECT_EQ(expected.messages().size(), row.unhandled) << row.what;
    }
    const auto service = offer(*a, 0);
    EXPECT_EQ(found(look()), service->objectId());
}

TEST_F(BusTest, ReachesEverybodyAndKeepsTheLatestStickyBodies)
{
    // One process has one bus: the hub's was there with it. Another worker's comes later, and is asked by hand.
    dispatcher->worker().registerObjectReferenceClass<ipc::MessageBus>();
    const auto bus = findInstance<ipc::MessageBus>(loop, dispatcher->worker());
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
    settle();
    EXPECT_EQ(heard.size(), 4u) << "once each, by way of the relay";
    EXPECT_EQ(fn::MessageBus::instance().getStickyMessage("com.x.b"), Value("new"));

    const auto other = client("Other");
    other->worker->registerObjectReferenceClass<ipc::MessageBus>();
    const auto late = findInstance<ipc::MessageBus>(loop, *other->worker);
    const auto message = [](const char* name, const Value& body) {
        return Value::map({ { "namespace", name }, { "body", body } });
    };
    const Value expected[] { message("com.x.0", "before the hub was ready"),
        message("com.x.a", Value::map({ { "k", 1 } })), message("com.x.b", "new") };
    const auto kept = outcome([&] { return late->callMethod("getStickyMessages"); }).value();
    for (std::size_t i = 0; i < std::size(expected); ++i) EXPECT_EQ(kept[i], expected[i]);
    outcome([&] { return bus->getStickyMessages(); });
    EXPECT_EQ(heard.size(), 7u) << "a fetch delivers what is stored";

    // More than the relay may keep is refused, and nobody else loses anything.
    const LogCapture log(2);
    loop.post([] {
        fn::MessageBus::instance().postStickyMessage("com.x.large", fn::ByteArray(unsigned(ipc::limits::stickyBytes)));
        fn::MessageBus::instance().postMessage("com.x.after", {});
    });
    settle();
    EXPECT_EQ(heard.size(), 8u);
    EXPECT_EQ(heard.back().first, "com.x.after");
    EXPECT_TRUE(log.contains("Refusing the sticky message com.x.large"));
}
