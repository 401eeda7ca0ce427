// The inspectors of the object system beside the system itself. What can break here: numbers that are not true, entries that
// are skipped or shown twice between two pages, a view that touches what has gone.
#include "core/inspector/dispatcher_inspector.h"
#include "core/inspector/limits.h"
#include "core/inspector/modules_inspector.h"
#include "core/inspector/registry_inspector.h"
#include "core/ipc/hub_fixture.h"
#include "foundation/exceptions.h"
#include <gmock/gmock.h>

namespace {

using fn::Value;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

std::vector<std::string> textsOf(core::Inspector& inspector, const Value& action = {})
{
    std::vector<std::string> texts;
    for (const auto& item : inspector.inspect(action, {}).items) texts.push_back(item.text.toStdString());
    return texts;
}

Value workerAction(ipc::WorkerId id) { return Value::map({ { "worker", id } }); }

/// Where a message gets to its worker and no further.
ipc::ObjectId unknownObject(ipc::WorkerId owner) { return (ipc::ObjectId(9999) << 16) + owner; }

class SystemInspectorsTest : public test::HubTest {
protected:
    void call(const char* method, const Value& argument)
    {
        EXPECT_TRUE(outcome([&] { return user->worker->registry()->callMethod(method, argument); }).isFulfilled());
    }

    std::unique_ptr<test::Client> user = client("Client");
    fn::AutoPtr<core::DispatcherInspector> workers = fn::makeAuto<core::DispatcherInspector>(*dispatcher);
    fn::AutoPtr<core::RegistryInspector> registry = fn::makeAuto<core::RegistryInspector>(dispatcher->registryImpl());
};

} // namespace

TEST_F(SystemInspectorsTest, TellWhatHasGoneToAndFroAndWhoHoldsWhat)
{
    auto peer = stranger();
    peer->hello("Peer", "tag");
    settle();
    const auto holder = join("Holder"); // A worker would release at once what it cannot hold.
    const auto id = peer->id();
    const auto target = holder->id();
    const auto shared = test::objectMessage(unknownObject(target), target, {}, { { id, "x" }, { id + 65536u, "y" } });
    const auto plain = test::objectMessage(unknownObject(0), 0, "for nobody");
    peer->send(shared);
    peer->send(shared);
    peer->send(plain);
    settle();
    const auto hello = Value::map({ { 1, 1 }, { 2, "Peer" }, { 3, "tag" } });
    const auto bytesIn = test::frame(hello).size() + 2 * test::frame(shared).size() + test::frame(plain).size();
    std::size_t bytesOut = 0;
    for (const auto& message : peer->messages()) bytesOut += test::frame(message).size();

    EXPECT_THAT(textsOf(*workers, workerAction(id)),
        ElementsAre(fmt::format("Peer (tag, {})", id), fmt::format("Messages in: 4 ({} bytes)", bytesIn),
            fmt::format("Messages out: {} ({} bytes)", peer->messages().size(), bytesOut), "Waiting for it: 0 bytes",
            "Objects in use: 2", fmt::format("Object {}: sent 2 times, held by worker {} (2)", id, target),
            fmt::format("Object {}: sent 2 times, held by worker {} (2)", id + 65536u, target)));
    EXPECT_THAT(textsOf(*workers),
        ElementsAre(StartsWith("DispatcherWorker (0): "), StartsWith("Client (1): 0 objects"),
            fmt::format("Peer (tag, {}): 2 objects in use, 4 messages ({} bytes) in, {} ({} bytes) out", id, bytesIn,
                peer->messages().size(), bytesOut),
            StartsWith(fmt::format("Holder ({}): 0 objects", target))));

    peer->close();
    settle();
    EXPECT_EQ(textsOf(*workers).size(), 3u);
    const auto redirection = workers->inspect(workerAction(id), {}).redirectAction;
    EXPECT_TRUE(redirection && redirection->isNil()) << "it has gone: back to all";
    EXPECT_THROW(workers->inspect(Value("nonsense"), {}), fn::RangeException);
    user.reset();
    dispatcher.reset();
    EXPECT_TRUE(textsOf(*workers).empty());
    settle();
    EXPECT_TRUE(textsOf(*registry).empty());
}

TEST_F(SystemInspectorsTest, CutLongListsIntoPagesThatJoinAndLongNamesBetweenCharacters)
{
    constexpr std::size_t count = 2 * core::limits::inspectorLines + 1;
    const std::string shown(199, 'x');
    auto peer = join((shown + "ü").c_str(), (shown + "𝄞").c_str());
    EXPECT_THAT(textsOf(*workers), Contains(StartsWith(fmt::format("{} ({}, {}): ", shown, shown, peer->id()))));
    Value objects(Value::MAP);
    for (std::size_t i = 0; i < count; ++i) objects.set(peer->id() + 65536u * i, "x");
    const auto holder = join("Holder");
    auto message = test::objectMessage(unknownObject(holder->id()), holder->id(), {});
    message.set(ipc::field::OBJECTS, objects);
    peer->send(message);
    const auto service = fn::makeAuto<test::Service>(*user->worker);
    for (std::size_t i = 0; i < count; ++i)
        call("registerInstance", Value::map({ { "instance", service }, { "priority", i } }));
    settle();
    const std::tuple<core::Inspector*, Value, const char*, std::size_t> rows[] = {
        { workers.get(), workerAction(peer->id()), "Object ", count },
        { registry.get(), Value::map({ { "registrations", 0 } }), "", count + 1 }, // And the bus.
    };
    for (auto [inspector, action, prefix, expected] : rows) {
        std::vector<fn::String> lines;
        for (bool isMore = true; isMore;) {
            const auto items = inspector->inspect(action, {}).items;
            ASSERT_FALSE(items.empty());
            for (const auto& item : items) {
                isMore = item.text.startsWith("More ");
                if (item.text.startsWith(prefix) && !isMore) lines.push_back(item.text);
            }
            action = items.back().action;
        }
        EXPECT_EQ(lines.size(), expected);
        EXPECT_EQ(std::set(lines.begin(), lines.end()).size(), expected) << "some are shown twice";
    }
}

TEST_F(SystemInspectorsTest, TellWhatIsRegisteredHiddenAndAwaited)
{
    const auto service = fn::makeAuto<test::Service>(*user->worker);
    call("registerInstance", Value::map({ { "instance", service }, { "priority", -3 } }));
    call("registerInstance", Value::map({ { "instance", service }, { "priority", 5 } }));
    call("setInstancesHidden", true);
    const auto awaited = Value::map({ { "className", "Nobody" }, { "timeout", 1000 } });
    outcome([&] { return user->worker->registry()->callMethod("getInstance", awaited); });
    const auto id = user->worker->workerId();
    const auto line = [&](int priority) {
        return fmt::format(
            "test::ServiceReference: priority {}, object {} of worker {}, registered by worker {}, hidden", priority,
            service->objectId(), id, id);
    };
    EXPECT_THAT(textsOf(*registry),
        ElementsAre("3 registrations", StartsWith("ipc::MessageBus: priority 0, object "), line(5), line(-3),
            "1 waiting look-ups", fmt::format("Nobody: awaited by worker {}", id)));
    pass(fn::Duration::seconds(1));
    call("setInstancesHidden", false);
    EXPECT_THAT(textsOf(*registry), Contains("0 waiting look-ups"));
    EXPECT_THAT(textsOf(*registry), Not(Contains(HasSubstr("hidden"))));
}

TEST_F(SystemInspectorsTest, OfModulesIsEmptyOnceTheirManagerHasGone)
{
    auto manager = std::make_unique<ipc::ModuleManager>(*dispatcher, std::vector<ipc::ModuleDefinition*>());
    const auto inspector = fn::makeAuto<core::ModulesInspector>(*manager);
    manager.reset();
    EXPECT_TRUE(textsOf(*inspector).empty());
}
