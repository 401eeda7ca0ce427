// The registry and the bus through a real hub. What can break here: arguments that harm others, an object of another class than was
// asked for, sticky bodies that are lost or kept without bound.
#include "core/ipc/dispatcher/hub_inspection.h"
#include "core/ipc/limits.h"
#include "core/ipc/message_bus.h"
#include "hub_fixture.h"
#include "support/expectations.h"
#include "support/log_capture.h"
#include <tuple>

namespace {

using namespace test;

class RegistryTest : public HubTest {
protected:
    Outcome look(fn::Duration bound = fn::Duration::seconds(20))
    {
        return outcome([&] { return user->worker->registry()->getInstance<ServiceReference>(bound); });
    }

    std::unique_ptr<Client> provider = client("Provider"), user = client("User");
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

TEST_F(RegistryTest, ALookUpGivesTheClassThatItAsksForOrSaysWhyNot)
{
    const auto waiting = look();
    auto dying = client("Dying");
    outcome([&] { return dying->worker->registry()->getInstance<ServiceReference>(fn::Duration::seconds(20)); });
    dying.reset();
    settle();
    EXPECT_EQ(ipc::HubInspection(*dispatcher).waiterCount(), 1u) << "the dead wait no longer";
    pass(fn::Duration::seconds(20));
    EXPECT_EQ(waiting.error(),
        "OperationTimedOutException: Object of class test::ServiceReference is not available. Try restarting Skyfold");
    const auto pretender = fn::makeAuto<Pretender>(*user->worker);
    outcome([&] { return user->worker->registry()->registerObject(pretender, 0); });
    const auto error = look().error();
    EXPECT_TRUE(error.starts_with("RuntimeException: The object found as test::ServiceReference is of class "))
        << error;
    EXPECT_TRUE(error.contains("Pretender::Reference")) << error;
    const auto service = offer(*provider, 1);
    EXPECT_TRUE(look(fn::Duration::seconds(-5)).isFulfilled()) << "what is there is found without waiting";
}

TEST_F(RegistryTest, BadArgumentsHarmNobody)
{
    const auto lookUp = [](const fn::String& name, const Value& bound) {
        return Value::map({ { "className", name }, { "timeout", bound } });
    };
    const std::tuple<const char*, Value, bool, std::size_t> rows[] {
        { "a time-out without end", lookUp("X", INT64_MAX), false, 0 },
        { "a name that is too long", lookUp(std::string(ipc::limits::nameBytes + 1, 'x'), INT64_MAX), true, 0 },
        { "what makes no sense", lookUp("X", "soon"), false, 1 },
    };
    for (const auto& [what, argument, isAnswered, unhandled] : rows) {
        const ExpectUnhandled expected;
        const auto answer = outcome([&] { return user->worker->registry()->callMethod("getInstance", argument); });
        EXPECT_EQ(answer.isOver(), isAnswered) << what;
        EXPECT_EQ(expected.messages().size(), unhandled) << what;
    }
    const auto service = offer(*provider);
    EXPECT_TRUE(look().isFulfilled());
}

TEST_F(BusTest, KeepsWhatWasPostedBeforeTheHubWasReadyAndRefusesTooMuch)
{
    const LogCapture log(2);
    const fn::ByteArray large(static_cast<unsigned>(ipc::limits::stickyBytes));
    loop.post([&] { fn::MessageBus::instance().postStickyMessage("com.x.large", large); });
    settle();
    EXPECT_TRUE(log.contains("Refusing the sticky message com.x.large"));
    dispatcher->worker().registerObjectReferenceClass<ipc::MessageBus>();
    const auto bus = findInstance<ipc::MessageBus>(loop, dispatcher->worker());
    ASSERT_EQ(&fn::MessageBus::instance(), bus.get());
    std::vector<std::pair<fn::String, Value>> heard;
    const auto listener = bus->onMessage("com.x").connect(
        [&](const fn::String& name, const Value& body) { heard.emplace_back(name, body); });
    outcome([&] { return bus->getStickyMessages(); });
    EXPECT_EQ(heard, (std::vector<std::pair<fn::String, Value>> { { "com.x.0", "before the hub was ready" } }));
}
