// Inspectors published, listed and asked through a real dispatcher, and those of the object system beside the system itself. What
// can break here: a registration that outlives its publisher or keeps a place it has given up, a stranger who makes the service
// hold without bound or end; numbers that are not true, entries that are skipped or shown twice, a view that touches what has gone.
#include "base/exceptions.h"
#include "core/ipc/hub_fixture.h"
#include "core/ipc_services/inspector/dispatcher_inspector.h"
#include "core/ipc_services/inspector/inspector.h"
#include "core/ipc_services/inspector/inspector_registry.h"
#include "core/ipc_services/inspector/limits.h"
#include "core/ipc_services/inspector/register_inspector_registry.h"
#include "core/ipc_services/inspector/registry_inspector.h"
#include "folder_inspector.h"
#include "foundation/value_map.h"
#include <algorithm>
#include <gmock/gmock.h>

namespace {

using core::Inspector;
using fn::Value;
using test::Outcome;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* keyOfDisks = "fUhlfDbNF0+VcEK+XoE6D19FEMx9E63n93u7C6KZjrE=";
const fn::String tooLong(std::string(core::limits::inspectorNameBytes + 1, 'x'));

class InspectorTest : public test::HubTest {
protected:
    InspectorTest()
    {
        loop.post([this] { core::registerInspectorRegistry(dispatcher->worker()); });
        publishing = service(*publisher);
        browsing = service(*browser);
    }

    fn::AutoPtr<core::InspectorRegistry> service(test::Client& client)
    {
        client.worker->registerObjectReferenceClass<core::InspectorRegistry>();
        return test::findInstance<core::InspectorRegistry>(loop, *client.worker);
    }

    fn::AutoPtr<Inspector> anInspector() const { return fn::makeAuto<FolderInspector>(folders); }

    Value publish(const char* name, const fn::AutoPtr<Inspector>& inspector)
    {
        return outcome([&] { return publishing->registerInspector(name, inspector); }).value();
    }

    std::map<fn::String, fn::String> all()
    {
        std::map<fn::String, fn::String> result;
        outcome([&] { return browsing->allInspectors().then([&](auto&& names) { result = std::move(names); }); });
        return result;
    }

    fn::AutoPtr<core::InspectorReference> find(const fn::String& key)
    {
        return outcome([&] { return browsing->getInspector(key); }).value().object<core::InspectorReference>();
    }

    /// How the call ends.
    Outcome call(const char* method, const Value& argument)
    {
        return outcome([&] { return browsing->callMethod(method, argument); });
    }

    std::map<fn::String, std::vector<fn::String>> folders { { "music", { "a.ogg", "b.ogg" } }, { "none", {} } };
    std::unique_ptr<test::Client> publisher = client("Publisher"), browser = client("Browser");
    fn::AutoPtr<core::InspectorRegistry> publishing, browsing;
};

std::vector<std::string> textsOf(Inspector& inspector, const Value& action = {})
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
    fn::AutoPtr<core::RegistryInspector> registry = fn::makeAuto<core::RegistryInspector>(*dispatcher);
};

} // namespace

TEST_F(InspectorTest, ListsInspectorsOfOneNameUnderKeysOfTheirOwn)
{
    for (const auto* name : { "Disks", "Disks", "" }) publish(name, anInspector());
    auto names = all();
    ASSERT_EQ(names.size(), 3u);
    EXPECT_EQ(names.extract(keyOfDisks).mapped(), "Disks");
    const auto other = std::ranges::find(names, "Disks", [](const auto& entry) { return entry.second; })->first;
    EXPECT_EQ(other.size(), 36u) << "a UUID";
    EXPECT_NE(find(keyOfDisks)->objectId(), find(other)->objectId());
    EXPECT_FALSE(find("no such key"));
}

TEST_F(InspectorTest, RefusesWhatAStrangerMustNotRegister)
{
    const auto service = fn::makeAuto<test::Service>(*browser->worker);
    const std::pair<Value, const char*> rows[] = {
        { {}, "RuntimeException: Only an inspector" },
        { Value::map({ { "name", "a" }, { "reference", service } }), "RuntimeException: Only an inspector" },
        { Value::map({ { "reference", "text" } }), "RangeException: " },
    };
    for (const auto& [argument, error] : rows)
        EXPECT_TRUE(call("registerInspector", argument).error().starts_with(error)) << argument;
    EXPECT_EQ(outcome([&] { return publishing->registerInspector(tooLong, anInspector()); }).error(),
        "RuntimeException: The name of the inspector is too long");
    EXPECT_TRUE(all().empty());
    EXPECT_EQ(publish("Disks", anInspector()), Value(1)) << "what was refused took no id";
    EXPECT_EQ(call("registerInspector", Value::map({ { "reference", find(keyOfDisks) } })).error(),
        "RuntimeException: Only the worker of an inspector can register it");
}

TEST_F(InspectorTest, BoundsWhatOneWorkerRegistersAndTakesBackWhatItGivesUp)
{
    // One object under many names: what is counted is registrations.
    outcome([&] { return browsing->registerInspector("Disks", anInspector()); });
    const auto again = Value::map({ { "name", "one more" }, { "reference", find(keyOfDisks) } });
    for (std::size_t i = 1; i < core::limits::inspectorsOfWorker; ++i)
        loop.post([&] { browsing->callMethod("registerInspector", again).then([](Value&&) {}); });
    settle();
    EXPECT_EQ(
        call("registerInspector", again).error(), "RuntimeException: Too many inspectors of one worker are registered");
    EXPECT_EQ(publish("Others may", anInspector()), Value(core::limits::inspectorsOfWorker + 1));
    outcome([&] { return publishing->unregisterInspector(5); });
    EXPECT_TRUE(call("registerInspector", again).isFulfilled());
    EXPECT_EQ(all().size(), core::limits::inspectorsOfWorker + 1);
    browser->worker->stop();
    settle();
    browsing = publishing;
    EXPECT_EQ(all().size(), 1u) << "they leave the list with their publisher";
    EXPECT_EQ(publish("Disks", anInspector()), Value(core::limits::inspectorsOfWorker + 3));
    EXPECT_TRUE(all().contains(keyOfDisks)) << "its place is free again";
}

TEST_F(SystemInspectorsTest, CutLongListsIntoPagesThatJoin)
{
    constexpr std::size_t count = 2 * core::limits::inspectorLines + 1;
    const auto peer = join("Owner");
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
    const std::tuple<Inspector*, Value, const char*> rows[] = { { workers.get(), workerAction(peer->id()), "Object " },
        { registry.get(), Value::map({ { "registrations", 0 } }), "test::" } };
    for (auto [inspector, action, prefix] : rows) {
        std::multiset<fn::String> lines;
        for (bool isMore = true; isMore;) {
            const auto items = inspector->inspect(action, {}).items;
            ASSERT_FALSE(items.empty());
            for (const auto& item : items) {
                if (item.text.startsWith(prefix)) lines.insert(item.text);
            }
            isMore = items.back().text.startsWith("More ");
            action = items.back().action;
        }
        EXPECT_EQ(lines.size(), count);
        EXPECT_EQ(std::set(lines.begin(), lines.end()).size(), count) << "some are shown twice";
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
