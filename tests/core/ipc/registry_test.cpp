// The registry and the bus through a real hub. What can break here: the wrong one of several registrations, a waiter answered
// twice or never, an instance that cannot be hidden or shown again, sticky bodies lost, kept twice or without bound.
#include "core/ipc/limits.h"
#include "core/ipc/message_bus.h"
#include "core/ipc/registry_impl.h"
#include "hub_fixture.h"
#include "support/expectations.h"
#include "support/log_capture.h"

namespace {

using namespace test;

class RegistryTest : public HubTest {
protected:
    Outcome look(fn::Duration bound = fn::Duration::seconds(20))
    {
        return outcome([&] { return user->worker->registry()->getInstance<ServiceReference>(bound); });
    }

    /// 0: it still waits.
    static ObjectId found(Outcome outcome)
    {
        return outcome.isFulfilled() ? outcome.value().object<ipc::ObjectReference>()->objectId() : 0;
    }

    std::unique_ptr<Client> a = client("A"), b = client("B"), user = client("User");
};

/// An object whose reference says that it is of another class.
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

struct EarlyPost {
    EarlyPost() { fn::MessageBus::instance().postStickyMessage("com.x.0", "before the hub was ready"); }
};
class BusTest : EarlyPost, public HubTest { };

} // namespace

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

TEST_F(RegistryTest, ALookUpGivesTheClassThatItAsksForOrFails)
{
    // Nobody has registered the class in the hub when the object is, so that the registry's own reference is a plain one.
    const auto service = offer(*a, 0);
    for (auto* worker : { user->worker.get(), &dispatcher->worker() }) {
        const auto first = findInstance<ServiceReference>(loop, *worker);
        ASSERT_TRUE(first);
        EXPECT_EQ(first.get(), findInstance<ServiceReference>(loop, *worker).get());
    }
    a->worker->stop();
    settle();
    EXPECT_EQ(dispatcher->registryImpl()->registrationCount(), 1u)
        << "the entry goes with its provider, though another reference has taken the place of the registry's";

    const auto pretender = fn::makeAuto<Pretender>(*user->worker);
    outcome([&] { return user->worker->registry()->registerObject(pretender, 0); });
    const auto error = look().error();
    EXPECT_TRUE(error.starts_with("RuntimeException: The object found as test::ServiceReference is of class "))
        << error;
    EXPECT_TRUE(error.find("Pretender::Reference") != std::string::npos) << error;

    auto refused = fn::makeAuto<Service>(*b->worker);
    const fn::WeakPtr weak(refused);
    outcome([&] { return user->worker->registry()->registerObject(refused, 0); });
    refused.reset();
    settle();
    EXPECT_FALSE(weak.lock()) << "another worker's object is not kept";
}

TEST_F(RegistryTest, BadArgumentsHarmNobody)
{
    const auto lookUp = [](const fn::String& name, const Value& bound) {
        return Value::map({ { "className", name }, { "timeout", bound } });
    };
    struct Row {
        const char* what;
        const char* method;
        Value argument;
        std::size_t answers, unhandled;
    };
    const Row rows[] {
        { "a time-out without end", "getInstance", lookUp("X", INT64_MAX), 0, 0 },
        { "a missing object is answered, without effect", "registerInstance", Value::map({ { "instance", {} } }), 1,
            0 },
        { "an unknown method is not", "unknown", {}, 0, 0 },
        { "a name that is too long is refused at once", "getInstance",
            lookUp(std::string(ipc::limits::classNameBytes + 1, 'x'), INT64_MAX), 1, 0 },
        { "what makes no sense is not answered", "getInstance", lookUp("X", "soon"), 0, 1 },
    };
    for (const auto& row : rows) {
        const auto peer = join();
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

TEST_F(BusTest, RefusesWhatIsTooMuchToKeepAndNothingElse)
{
    std::vector<std::pair<fn::String, Value>> heard;
    const auto listener = fn::MessageBus::instance().onMessage("com.x").connect(
        [&](const fn::String& name, const Value& body) { heard.emplace_back(name, body); });
    const LogCapture log(2);
    loop.post([] {
        auto& bus = fn::MessageBus::instance();
        bus.postStickyMessage("com.x.a", Value::map({ { "k", Value::array({ 1, "text" }) } }));
        bus.postStickyMessage("com.x.large", fn::ByteArray(unsigned(ipc::limits::stickyBytes)));
        bus.postMessage("com.xy", "not for com.x");
        bus.postMessage("com.x.after", {});
    });
    settle();
    EXPECT_EQ(heard.size(), 2u) << "once each, by way of the relay";
    EXPECT_EQ(heard.back().first, "com.x.after");
    EXPECT_TRUE(log.contains("Refusing the sticky message com.x.large"));
    dispatcher->worker().registerObjectReferenceClass<ipc::MessageBus>();
    const auto bus = findInstance<ipc::MessageBus>(loop, dispatcher->worker());
    ASSERT_EQ(&fn::MessageBus::instance(), bus.get());
    heard.clear();
    outcome([&] { return bus->getStickyMessages(); });
    EXPECT_EQ(heard,
        (std::vector<std::pair<fn::String, Value>> { { "com.x.0", "before the hub was ready" },
            { "com.x.a", Value::map({ { "k", Value::array({ 1, "text" }) } }) } }));
}
