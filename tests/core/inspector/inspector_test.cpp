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
#include <gtest/gtest.h>

namespace {

using core::InspectionResult;
using core::InspectionResultWriter;
using core::Inspector;
using fn::Value;
using test::Outcome;

constexpr const char* keyOfDisks = "fUhlfDbNF0+VcEK+XoE6D19FEMx9E63n93u7C6KZjrE=";

/// Answers when the test says so.
class SlowInspector final : public Inspector {
public:
    using Inspector::inspect;
    void inspect(const Value& action, const Value& referer, const CallContext& context) override
    {
        asked = action.toString() + " from " + referer.toString();
        waiting.push_back(context);
    }
    void answer(const Value& action = {})
    {
        InspectionResult result;
        InspectionResultWriter(result).append("at last", action);
        for (const auto& context : waiting) sendResult(context, result);
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

    /// What `inspector` shows, or how the call fails.
    Outcome inspect(core::InspectorReference& inspector, const Value& action, const Value& referer = {})
    {
        return outcome([&] {
            return inspector.inspect(action, referer).then([](InspectionResult&& result) {
                return result.serialize();
            });
        });
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
    const auto second = Value::map({ { "text", "second" }, { "action", 7 } });
    const auto third = Value::map({ { "text", "third" }, { "action", "" } });
    EXPECT_EQ(result.serialize(), Value::map({ { "items", Value::array({ "first", second, third }) } }));
    EXPECT_EQ(InspectionResult::deserialize(result.serialize()).serialize(), result.serialize());
    for (const auto& action : { Value(), Value(Value::array({ 1, "x" })) }) {
        result.redirectAction = action;
        EXPECT_EQ(result.serialize(), Value::map({ { "redirectAction", action } }));
        EXPECT_EQ(InspectionResult::deserialize(result.serialize()).redirectAction, action);
    }

    const auto lines = Value::array({ 5, Value::array({ "x" }), {}, Value::map({ { "action", 1 } }),
        Value::map({ { "text", 12 } }), Value::map({ { 3, 4 } }) });
    const auto odd = InspectionResult::deserialize(Value::map({ { "items", lines } }));
    const auto action = Value::map({ { "text", "" }, { "action", 1 } });
    EXPECT_EQ(odd.serialize(), Value::map({ { "items", Value::array({ "", "", "", action, "12", "" }) } }));
    for (const auto& value : { Value(), Value("items"), Value::array({ "items" }), Value(3), Value(Value::MAP),
             Value::map({ { "items", "text" } }), Value::map({ { "items", Value::map({ { 0, "a" } }) } }) }) {
        const auto other = InspectionResult::deserialize(value);
        EXPECT_TRUE(!other.redirectAction && other.items.empty()) << value;
    }
}

TEST_F(InspectorTest, ListsInspectorsOfOneNameUnderKeysOfTheirOwn)
{
    EXPECT_EQ(publish("Disks", anInspector()), Value(1));
    EXPECT_EQ(publish("Disks", anInspector()), Value(2));
    EXPECT_EQ(publish("", anInspector()), Value(3));
    const auto names = all();
    ASSERT_EQ(names.size(), 3u);
    ASSERT_TRUE(names.contains(keyOfDisks));
    std::vector<fn::String> others;
    for (const auto& [key, name] : names) {
        if (name == "Disks" && key != keyOfDisks) others.push_back(key);
    }
    ASSERT_EQ(others.size(), 1u);
    EXPECT_EQ(others[0].size(), 36u) << "a UUID";
    const auto first = find(keyOfDisks);
    const auto second = find(others[0]);
    ASSERT_TRUE(first && second);
    EXPECT_NE(first->objectId(), second->objectId());
    EXPECT_FALSE(find("no such key"));

    // The first one's key becomes free with it, ids do not.
    for (const unsigned id : { 1, 1, 0 })
        EXPECT_TRUE(outcome([&] { return browsing->unregisterInspector(id); }).isFulfilled());
    EXPECT_FALSE(all().contains(keyOfDisks));
    EXPECT_EQ(publish("Disks", anInspector()), Value(4));
    EXPECT_TRUE(all().contains(keyOfDisks));
    EXPECT_TRUE(all().contains(others[0]));
}

TEST_F(InspectorTest, LeadsFromPageToPageAndBackWhereOneHasGone)
{
    publish("Disks", anInspector());
    const auto inspector = find(keyOfDisks);
    const auto page = [&](const Value& action) {
        return InspectionResult::deserialize(inspect(*inspector, action).value());
    };
    const auto top = page({});
    ASSERT_EQ(top.items.size(), 2u);
    EXPECT_EQ(page(top.items[0].action).items.at(1).text, "b.ogg");
    EXPECT_TRUE(page(top.items[1].action).items.empty());
    folders.erase("music");
    const auto redirection = page(top.items[0].action).redirectAction;
    ASSERT_TRUE(redirection);
    EXPECT_EQ(page(*redirection).items.at(0).text, "none");
    EXPECT_TRUE(inspect(*inspector, Value::map({})).error().starts_with("RangeException: ")) << "what it throws";
    // Without arguments both actions are nil; other methods are not answered.
    EXPECT_EQ(outcome([&] { return inspector->callMethod("inspect", 12); }).value().at("items").size(), 1u);
    EXPECT_FALSE(outcome([&] { return inspector->callMethod("expect", {}); }).isOver());
}

TEST_F(InspectorTest, AnswersLateWhateverBecomesOfItsRegistrationsAndNotAtAllOnceItIsGone)
{
    const auto slow = fn::makeAuto<SlowInspector>();
    const auto id = publish("Disks", slow);
    auto inspector = find(keyOfDisks);
    const auto answer = [&](const Value& action = {}) {
        loop.post([&] { slow->answer(action); });
        settle();
    };
    const auto first = inspect(*inspector, {});
    const auto second = inspect(*inspector, 7, "start");
    EXPECT_EQ(slow->asked, "7 from start");
    EXPECT_FALSE(first.isOver());
    answer();
    EXPECT_TRUE(first.isFulfilled() && second.isFulfilled());

    Value deep; // As an action it arrives, a little deeper in a result it does not leave.
    for (int level = 0; level < 509; ++level) deep = Value::array({ std::move(deep) });
    const auto tooDeep = inspect(*inspector, deep);
    answer(deep);
    EXPECT_EQ(tooDeep.error(), "DataFormatException: Value is nested too deeply");

    const fn::String refused(std::string(core::limits::inspectorNameBytes + 1, 'x'));
    for (const auto& name : { refused, fn::String("Disks again") }) { // What is refused has gone.
        const auto meanwhile = inspect(*inspector, {});
        outcome([&] { return publishing->registerInspector(name, slow); });
        answer();
        EXPECT_TRUE(meanwhile.isFulfilled()) << name;
    }
    auto again = find(fn::ByteArray(std::string_view("Disks again")).SHA256().base64(0));
    const auto other = inspect(*again, {});
    answer();
    EXPECT_TRUE(other.isFulfilled()) << "by the way that the call has come";
    again.reset();
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

TEST_F(InspectorTest, LeavesTheListWithItsPublisher)
{
    const auto slow = fn::makeAuto<SlowInspector>();
    publish("Disks", anInspector());
    publish("Slow", slow);
    outcome([&] { return browsing->registerInspector("Other", anInspector()); });
    const auto inspector = find(fn::ByteArray(std::string_view("Slow")).SHA256().base64(0));
    const auto pending = inspect(*inspector, {});
    publisher->worker->stop();
    settle();
    EXPECT_EQ(pending.error(), "ObjectDeadException: ");
    EXPECT_EQ(all().size(), 1u);
    EXPECT_FALSE(find(keyOfDisks));
    slow->answer(); // Into the void.

    // Its successor takes the place, under an id of its own.
    publisher = client("Publisher");
    publishing = service(*publisher);
    EXPECT_EQ(publish("Disks", anInspector()), Value(4));
    ASSERT_TRUE(find(keyOfDisks));
}

TEST_F(InspectorTest, RefusesWhatAStrangerMustNotRegister)
{
    struct Row {
        const char* method;
        Value argument;
        const char* answer;
    };
    const auto service = fn::makeAuto<test::Service>(*browser->worker);
    const Row rows[] = {
        { "registerInspector", {}, "RuntimeException: Only an inspector" },
        { "registerInspector", Value::map({ { "name", "a" }, { "reference", service } }),
            "RuntimeException: Only an inspector" },
        { "registerInspector", Value::map({ { "reference", "text" } }), "RangeException: " },
        { "unregisterInspector", -1, "RangeException: " },
        { "unregisterInspector", "one", "RangeException: " },
        { "getInspector", Value::array({}), "nil" },
    };
    const auto call = [&](const char* method, const Value& argument) {
        auto answer = outcome([&] { return browsing->callMethod(method, argument); });
        return answer.isFulfilled() ? answer.value().toString().toStdString() : answer.error();
    };
    for (const auto& [method, argument, answer] : rows)
        EXPECT_TRUE(call(method, argument).starts_with(answer)) << method << argument;
    EXPECT_EQ(outcome([&] { return publishing->registerInspector("None", nullptr); }).error(),
        "NullPointerException: There is no inspector to register");
    const fn::String tooLong(std::string(core::limits::inspectorNameBytes + 1, 'x'));
    EXPECT_EQ(outcome([&] { return publishing->registerInspector(tooLong, anInspector()); }).error(),
        "RuntimeException: The name of the inspector is too long");
    EXPECT_TRUE(all().empty());
    EXPECT_EQ(publish("Disks", anInspector()), Value(1)) << "what was refused took no id";
    EXPECT_EQ(call("registerInspector", Value::map({ { "reference", find(keyOfDisks) } })),
        "RuntimeException: Only the worker of an inspector can register it");
}

TEST_F(InspectorTest, BoundsWhatOneWorkerRegistersAndTakesBackWhatItGivesUp)
{
    // One object under many names: what is counted is registrations.
    outcome([&] { return browsing->registerInspector("Disks", anInspector()); });
    const auto first = find(keyOfDisks);
    for (std::size_t i = 1; i < core::limits::inspectorsOfWorker; ++i) {
        const auto argument = Value::map({ { "name", i }, { "reference", first } });
        loop.post([&, argument] { browsing->callMethod("registerInspector", argument).then([](Value&&) {}); });
    }
    settle();
    const auto again = Value::map({ { "name", "one more" }, { "reference", first } });
    EXPECT_EQ(outcome([&] { return browsing->callMethod("registerInspector", again); }).error(),
        "RuntimeException: Too many inspectors of one worker are registered");
    EXPECT_EQ(publish("Others may", anInspector()), Value(core::limits::inspectorsOfWorker + 1));
    outcome([&] { return publishing->unregisterInspector(5); });
    EXPECT_TRUE(outcome([&] { return browsing->callMethod("registerInspector", again); }).isFulfilled());
    EXPECT_EQ(all().size(), core::limits::inspectorsOfWorker + 1);
    browser->worker->stop();
    settle();
    browsing = publishing;
    EXPECT_EQ(all().size(), 1u);
}
