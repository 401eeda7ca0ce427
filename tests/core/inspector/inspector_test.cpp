// Inspectors published, listed and asked through a real dispatcher. What can break here: a result that changes on its way, two
// inspectors under one key, a registration that outlives its publisher or keeps a place it has given up, an answer that comes
// after its object, a stranger who makes the service hold without bound or end.
#include "core/inspector/inspection_result_writer.h"
#include "core/inspector/inspector.h"
#include "core/inspector/inspector_registry.h"
#include "core/inspector/limits.h"
#include "core/inspector/register_inspector_registry.h"
#include "core/ipc/hub_fixture.h"
#include "folder_inspector.h"
#include "foundation/exceptions.h"
#include "foundation/value_map.h"
#include <algorithm>
#include <gtest/gtest.h>

namespace {

using core::InspectionResult;
using core::InspectionResultWriter;
using core::Inspector;
using fn::Value;
using test::Outcome;

constexpr const char* keyOfDisks = "fUhlfDbNF0+VcEK+XoE6D19FEMx9E63n93u7C6KZjrE=";
const fn::String tooLong(std::string(core::limits::inspectorNameBytes + 1, 'x'));

fn::String keyOf(std::string_view name) { return fn::ByteArray(name).SHA256().base64(0); }

/// Answers when the test says so.
class SlowInspector final : public Inspector {
public:
    using Inspector::inspect;
    void inspect(const Value& action, const Value& referer, const CallContext& context) override
    {
        asked = action.toString() + " from " + referer.toString();
        waiting.push_back(context);
    }
    void answer()
    {
        for (const auto& context : waiting) sendResult(context, {});
    }
    fn::String asked;
    std::vector<CallContext> waiting;
};

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
    Outcome inspect(core::InspectorReference& inspector, const Value& action, const Value& referer = {})
    {
        return outcome([&] { return inspector.inspect(action, referer).then([](InspectionResult&&) {}); });
    }
    Outcome call(const char* method, const Value& argument)
    {
        return outcome([&] { return browsing->callMethod(method, argument); });
    }

    std::map<fn::String, std::vector<fn::String>> folders { { "music", { "a.ogg", "b.ogg" } }, { "none", {} } };
    std::unique_ptr<test::Client> publisher = client("Publisher"), browser = client("Browser");
    fn::AutoPtr<core::InspectorRegistry> publishing, browsing;
};

} // namespace

TEST(InspectionResultTest, ComesBackFromItsSerializedFormAndReadsUnexpectedShapesAsEmpty)
{
    InspectionResult result;
    InspectionResultWriter(result).append("first").append("second", 7).append("third", "");
    EXPECT_EQ(result.serialize().toString(),
        R"({"items": ["first", {"action": 7, "text": "second"}, {"action": "", "text": "third"}]})");
    EXPECT_EQ(InspectionResult::deserialize(result.serialize()).serialize(), result.serialize());
    for (const auto& action : { Value(), Value(Value::array({ 1, "x" })) }) {
        result.redirectAction = action;
        EXPECT_EQ(result.serialize(), Value::map({ { "redirectAction", action } }));
        EXPECT_EQ(InspectionResult::deserialize(result.serialize()).redirectAction, action);
    }

    const auto lines = Value::array({ 5, Value::array({ "x" }), {}, Value::map({ { "action", 1 } }),
        Value::map({ { "text", 12 } }), Value::map({ { 3, 4 } }) });
    const auto odd = InspectionResult::deserialize(Value::map({ { "items", lines } }));
    EXPECT_EQ(odd.serialize().toString(), R"({"items": ["", "", "", {"action": 1, "text": ""}, "12", ""]})");
    for (const auto& value : { Value(), Value("items"), Value::array({ "items" }),
             Value::map({ { "items", Value::map({ { 0, "a" } }) } }) }) {
        const auto other = InspectionResult::deserialize(value);
        EXPECT_TRUE(!other.redirectAction && other.items.empty()) << value;
    }
}

TEST_F(InspectorTest, ListsInspectorsOfOneNameUnderKeysOfTheirOwn)
{
    for (const auto* name : { "Disks", "Disks", "" }) publish(name, anInspector());
    auto names = all();
    ASSERT_EQ(names.size(), 3u);
    EXPECT_EQ(names.extract(keyOfDisks).mapped(), "Disks");
    const auto other = std::ranges::find(names, "Disks", [](const auto& entry) { return entry.second; })->first;
    EXPECT_EQ(other.size(), 36u) << "a UUID";
    const auto first = find(keyOfDisks);
    const auto second = find(other);
    ASSERT_TRUE(first && second);
    EXPECT_NE(first->objectId(), second->objectId());
    EXPECT_FALSE(find("no such key"));

    // The first one's key becomes free with it, ids do not.
    for (const unsigned id : { 1, 1, 0 })
        EXPECT_TRUE(outcome([&] { return browsing->unregisterInspector(id); }).isFulfilled());
    EXPECT_FALSE(all().contains(keyOfDisks));
    EXPECT_EQ(publish("Disks", anInspector()), Value(4));
    EXPECT_TRUE(all().contains(keyOfDisks) && all().contains(other));
}

TEST_F(InspectorTest, AnswersLateWhateverBecomesOfItsRegistrationsAndNotAtAllOnceItIsGone)
{
    const auto slow = fn::makeAuto<SlowInspector>();
    const auto id = publish("Disks", slow);
    auto inspector = find(keyOfDisks);
    const auto answer = [&] {
        loop.post([&] { slow->answer(); });
        settle();
    };
    const auto first = inspect(*inspector, {});
    const auto second = inspect(*inspector, 7, "start");
    EXPECT_EQ(slow->asked, "7 from start");
    EXPECT_FALSE(first.isOver());
    answer();
    EXPECT_TRUE(first.isFulfilled() && second.isFulfilled());

    for (const auto& name : { tooLong, fn::String("Disks again") }) { // What is refused has gone.
        const auto meanwhile = inspect(*inspector, {});
        outcome([&] { return publishing->registerInspector(name, slow); });
        answer();
        EXPECT_TRUE(meanwhile.isFulfilled()) << name;
    }
    const auto other = inspect(*find(keyOf("Disks again")), {});
    answer();
    EXPECT_TRUE(other.isFulfilled()) << "by the way that the call has come";
    // A browser that still has it can go on; with the last reference the published object goes, not the inspector.
    for (const unsigned number : { id.to<unsigned>(), 2u })
        outcome([&] { return publishing->unregisterInspector(number); });
    const auto last = inspect(*inspector, {});
    answer();
    EXPECT_TRUE(last.isFulfilled());
    inspector.reset();
    settle();
    EXPECT_EQ(slow->referenceCount(), 1u);
    answer(); // Into the void.
}

TEST_F(InspectorTest, RefusesWhatAStrangerMustNotRegister)
{
    const auto service = fn::makeAuto<test::Service>(*browser->worker);
    const std::tuple<const char*, Value, const char*> rows[] = {
        { "registerInspector", {}, "RuntimeException: Only an inspector" },
        { "registerInspector", Value::map({ { "name", "a" }, { "reference", service } }),
            "RuntimeException: Only an inspector" },
        { "registerInspector", Value::map({ { "reference", "text" } }), "RangeException: " },
        { "unregisterInspector", -1, "RangeException: " },
        { "unregisterInspector", "one", "RangeException: " },
    };
    for (const auto& [method, argument, error] : rows)
        EXPECT_TRUE(call(method, argument).error().starts_with(error)) << method << argument;
    EXPECT_EQ(outcome([&] { return publishing->registerInspector("None", nullptr); }).error(),
        "NullPointerException: There is no inspector to register");
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
