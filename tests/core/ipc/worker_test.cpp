// A worker against a hub that speaks by hand. What can break here: fields and order of what a worker says, counts of what it
// receives and sends, objects of the dead, the countdown to its own end, and its reaction to bad bytes and cut pipes.
#include "core/ipc/wire/message_dump.h"
#include "foundation/exceptions.h"
#include "foundation/system/uuid.h"
#include "foundation/time/clock.h"
#include "support/expectations.h"
#include "support/log_capture.h"
#include "support/peer.h"
#include "support/worker.h"
#include <set>

namespace {

using namespace test;
using fn::Value;
using ipc::ObjectId;
namespace field = ipc::field;
namespace type = ipc::type;

constexpr const char* className = "test::ServiceReference";
constexpr ObjectId foreign = (7 << 16) + 2; // Of worker 2, which sends all messages.

Value call(const char* method, const Value& argument = {})
{
    return Value::map({ { "TYPE", "CALL" }, { "METHOD_NAME", method }, { "ARGUMENT", argument }, { "REQUEST_ID", 9 } });
}

/// A call of "take" whose argument names objects by id.
fn::ByteArray callWithObjects(std::initializer_list<ObjectId> ids)
{
    std::string bytes = "\x84\xa8"
                        "ARGUMENT";
    bytes += static_cast<char>(0x90 + ids.size());
    for (const auto id : ids) {
        bytes += "\xd7\x01";
        for (int i = 0; i < 8; ++i) bytes += static_cast<char>(id >> (8 * i));
    }
    return fn::ByteArray(bytes
        + "\xab"
          "METHOD_NAME"
          "\xa4"
          "take"
          "\xaa"
          "REQUEST_ID"
          "\x09"
          "\xa4"
          "TYPE"
          "\xa4"
          "CALL");
}

class WorkerTest : public testing::Test {
protected:
    void start(bool ownProcess = false)
    {
        const auto name = "\\\\.\\pipe\\worker-test-" + fn::UUIDGenerator::defaultGenerator().createOne().toString();
        listener = fn::makeAuto<fn::uv::PipeStream>(*loop);
        listener->bind(name);
        listener->listen(8, [this](const fn::uv::Status&) { hub = std::make_unique<Peer>(*loop, *listener); });
        client = std::make_unique<Client>(*loop, name, "Name", ownProcess);
        settle();
        ASSERT_EQ(hub->count(type::HELLO), 1u);
    }

    /// Connects with id 5.
    void welcome(bool ownProcess = false)
    {
        start(ownProcess);
        deliver(Value::map({ { field::TYPE, type::HELLO }, { field::WORKER_ID, 5 } }));
        ASSERT_TRUE(client->isConnected());
        client->worker->registerObjectReferenceClass<ServiceReference>();
        service = fn::makeAuto<Service>(*client->worker);
        settle();
    }

    void leave()
    {
        if (service) service->calls.clear();
        service.reset();
        client.reset();
        hub.reset();
    }

    void TearDown() override
    {
        leave();
        listener.reset();
        loop.reset();
        EXPECT_EQ(Service::alive, 0);
    }

    void settle() { test::settle(*loop); }

    /// What the worker has said before is forgotten.
    void deliver(const Value& message)
    {
        hub->clear();
        hub->send(message);
        settle();
    }

    /// For the service.
    Value message(const Value& payload, std::initializer_list<std::pair<ObjectId, const char*>> objects = {}) const
    {
        auto message = objectMessage(service->objectId(), 5, payload, objects);
        message.set(field::SOURCE_WORKER_ID, 2);
        return message;
    }

    Value bringing(std::initializer_list<ObjectId> ids,
        std::initializer_list<std::pair<ObjectId, const char*>> objects = { { foreign, className } }) const
    {
        auto message = this->message({}, objects);
        message.set(field::PAYLOAD, callWithObjects(ids));
        return message;
    }

    /// The reference that the first argument of the latest call is.
    fn::AutoPtr<ServiceReference> taken(std::size_t index = 0) const
    {
        return service->calls.back().argument[index].object<ServiceReference>();
    }

    static Value instanceRelease(ObjectId id, int count)
    {
        return Value::map(
            { { field::TYPE, type::INSTANCE_RELEASE }, { field::OBJECT_ID, id }, { field::USAGE_COUNT, count } });
    }
    static Value aboutWorker(int type, ipc::WorkerId id)
    {
        return Value::map({ { field::TYPE, type }, { field::WORKER_ID, id } });
    }
    static Value decoded(const Value& message) { return ipc::translatePayload(message.at(field::PAYLOAD)); }

    fn::ManualClock clock;
    std::unique_ptr<fn::uv::Loop> loop = std::make_unique<fn::uv::Loop>(clock);
    fn::AutoPtr<fn::uv::PipeStream> listener;
    std::unique_ptr<Peer> hub;
    std::unique_ptr<Client> client;
    fn::AutoPtr<Service> service;
};

} // namespace

TEST_F(WorkerTest, IntroducesItselfAnswersPingsAndNumbersItsObjects)
{
    start();
    EXPECT_EQ(hub->messages()[0],
        Value::map({ { field::TYPE, type::HELLO }, { field::DISPLAY_NAME, "Name" }, { field::TAG, "" } }));
    EXPECT_EQ(client->worker->workerId(), ipc::NO_WORKER_ID);
    fn::AutoPtr<Service> early;
    {
        const ExpectAssertions expected;
        early = fn::makeAuto<Service>(*client->worker);
        EXPECT_EQ(expected.reports(),
            std::vector<std::string> { "libs/core/ipc/worker:207 nextObjectId Worker must be "
                                       "connected before ObjectInstances can be created" });
    }
    deliver(aboutWorker(type::HELLO, 5));
    const auto local = early->localReference();
    auto stray = objectMessage(0, 5, {}, { { early->objectId(), "named by a stranger" } });
    stray.set(field::SOURCE_WORKER_ID, 2);
    deliver(stray);
    deliver(Value::map({ { field::TYPE, type::PING } }));
    EXPECT_EQ(hub->messages(), std::vector { Value::map({ { field::TYPE, type::PONG } }) });
    const auto a = fn::makeAuto<Service>(*client->worker);
    const auto b = fn::makeAuto<Service>(*client->worker);
    EXPECT_EQ(a->objectId(), 5u) << "the early one has used up no number";
    EXPECT_EQ(b->objectId(), (1u << 16) + 5);
    const auto& registry = client->worker->registry();
    for (const auto& share : { std::function([&] { return registry->callMethod("x", early); }),
             std::function([&] { return registry->registerObject(early, 0).then([] { return Value(); }); }) }) {
        EXPECT_EQ(outcomeOf(*loop, share).error(),
            "RuntimeException: The object cannot be shared: it was made before the worker was connected");
    }
}

TEST_F(WorkerTest, ListsWhatItSendsOnceAndLetsGoOfNoMoreThanItHolds)
{
    welcome();
    deliver(message(call("get")));
    auto given = fn::makeAuto<Service>(*client->worker);
    const auto id = given->objectId();
    settle();
    hub->clear();
    service->sendResult(service->calls[0].context,
        Value::array({ given, given, given->localReference(), Value::map({ { 1, service } }) }));
    settle();
    auto sent = *hub->last(type::MESSAGE);
    EXPECT_TRUE(sent.remove(field::PAYLOAD));
    EXPECT_EQ(sent,
        Value::map(
            { { field::TYPE, type::MESSAGE }, { field::OBJECT_ID, service->objectId() }, { field::TARGET_WORKER_ID, 2 },
                { field::OBJECTS, Value::map({ { id, className }, { service->objectId(), className } }) } }));
    given.reset();
    settle();
    EXPECT_EQ(Service::alive, 2);
    deliver(instanceRelease(id, 1));
    EXPECT_EQ(Service::alive, 1);
    const ExpectAssertions expected;
    deliver(instanceRelease(service->objectId(), 2'000'000'000));
    deliver(instanceRelease(id, 1));
    EXPECT_EQ(expected.reports(), std::vector<std::string>(2, "libs/core/ipc/worker:169 onMessage instance"));
    EXPECT_EQ(Service::alive, 1);
}

TEST_F(WorkerTest, ObjectsOfTheDeadAreDeadUntilTheirIdIsUsedAgain)
{
    welcome();
    const auto bring = [&](int notice) {
        deliver(Value::map({ { field::TYPE, notice }, { field::WORKER_ID, 2 } }));
        deliver(bringing({ foreign }));
        return service->calls.back().argument[0].object<ServiceReference>();
    };
    /// Whether others get it.
    const auto isGiven = [&](const fn::AutoPtr<ServiceReference>& reference) {
        hub->clear();
        service->broadcastEvent("given", reference);
        settle();
        const auto& sent = *hub->last(type::MESSAGE);
        EXPECT_EQ(sent.at(field::OBJECTS).size() == 0, decoded(sent).at("ARGUMENT").isNil());
        return sent.at(field::OBJECTS).size() == 1;
    };
    const auto dead = bring(type::WORKER_DEAD);
    EXPECT_TRUE(dead->dead() && isGiven(dead));
    const auto alive = bring(type::WORKER_ID_REUSED);
    EXPECT_TRUE(!alive->dead() && isGiven(alive));
    EXPECT_TRUE(dead->dead() && !isGiven(dead)) << "its id names the new worker's object";
    hub->clear();
    dead->sendMessage("for the old one");
    settle();
    EXPECT_TRUE(hub->messages().empty());
}

TEST_F(WorkerTest, DropsMessagesThatItCannotReadAndGoesOn)
{
    welcome();
    const auto without = [&](int key) {
        auto message = this->message(call("x"));
        message.remove(key);
        return message;
    };
    const auto carrying = [&](const Value& payload) {
        auto message = this->message({});
        message.set(field::PAYLOAD, payload);
        return message;
    };
    struct Row {
        const char* what;
        Value message;
        const char* unhandled; ///< Part of the exception's text; null: none.
        const char* told = nullptr; ///< An assertion or a part of a line in the log.
    };
    const Row rows[] {
        { "no object", without(field::OBJECT_ID), "" },
        { "no source", without(field::SOURCE_WORKER_ID), "" },
        { "no list", without(field::OBJECTS), "" },
        { "a payload that is text", carrying("text"), "Invalid boxed type" },
        { "a payload that is none", carrying(fn::ByteArray("\xc1")), "" },
        { "no type", Value(Value::MAP), "" },
        { "an object id that is cut",
            carrying(fn::ByteArray("\xd6\x01"
                                   "abcd")),
            nullptr, "libs/core/ipc/worker:377 deserializeValue size == sizeof(ObjectId)" },
        { "an object of its own that it does not have", carrying(callWithObjects({ (99 << 16) + 5 })), nullptr,
            "libs/core/ipc/worker:384 deserializeValue i" },
        { "an object of a class that nobody registered", bringing({ foreign }, { { foreign, "some::Class" } }), nullptr,
            "2 core.ipc.ObjectReferenceFactory Couldn't create reference for class some::Class. Did you call "
            "'registerObjectReferenceClass()'?" },
        { "no payload", without(field::PAYLOAD), nullptr },
        { "an unknown type", Value::map({ { field::TYPE, 99 } }), nullptr },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const ExpectUnhandled unhandled;
        const ExpectAssertions assertions;
        const LogCapture log(2);
        service->calls.clear();
        deliver(row.message);
        ASSERT_EQ(unhandled.messages().size(), row.unhandled ? 1u : 0u);
        if (row.unhandled) {
            EXPECT_NE(unhandled.messages()[0].find(row.unhandled), std::string::npos);
            EXPECT_TRUE(service->calls.empty());
        }
        const auto reports = assertions.reports();
        EXPECT_TRUE(!row.told || log.contains(row.told) || reports == std::vector<std::string> { row.told });
        deliver(message(call("after")));
        EXPECT_EQ(service->calls.back().name, "after");
    }
}

TEST_F(WorkerTest, WhatABrokenPayloadListsIsReleasedAllTheSame)
{
    welcome();
    constexpr ObjectId behind = foreign + (1 << 16);
    auto broken = bringing({}, { { foreign, className }, { behind, className }, { service->objectId(), className } });
    const auto whole = callWithObjects({ foreign, behind });
    broken.set(field::PAYLOAD, fn::ByteArray(whole.view().substr(0, whole.view().find("METHOD_NAME") - 5)));
    const ExpectUnhandled expected;
    deliver(broken); // The second id is cut. The hub has counted each once.
    std::set<Value> released;
    for (const auto& sent : hub->messages()) released.insert(sent);
    const auto release = [](ObjectId id) {
        return Value::map(
            { { field::TYPE, type::REFERENCE_RELEASE }, { field::OBJECT_ID, id }, { field::USAGE_COUNT, 1 } });
    };
    EXPECT_EQ(released, (std::set { release(foreign), release(behind) }));
    EXPECT_EQ(hub->messages().size(), 2u);
    EXPECT_EQ(expected.messages().size(), 1u);
}

TEST_F(WorkerTest, AReceiverMayDestroyTheWorkerThatCallsIt)
{
    const std::pair<const char*, std::function<void()>> rows[] {
        { "a call", [&] { hub->send(message(call("end"))); } },
        { "a call with an object", [&] { hub->send(bringing({ foreign })); } },
        { "a death", [&] { hub->send(aboutWorker(type::WORKER_DEAD, ipc::ownerOf(foreign))); } },
        { "a lost hub", [&] { hub->close(); } },
    };
    for (const auto& [what, send] : rows) {
        SCOPED_TRACE(what);
        welcome(true);
        deliver(bringing({ foreign }));
        const auto reference = taken();
        reference->objectDeadSignal().connect([&] { client->worker.reset(); }).detach();
        service->answer = [&](const Service::Call&) { client->worker.reset(); };
        send();
        hub->send(message(call("late"))); // In the same chunk.
        settle();
        EXPECT_TRUE(!client->worker && reference->dead());
        EXPECT_EQ(client->delegate.terminationRequests, 0) << "of a worker that has gone";
        leave();
    }
}

TEST_F(WorkerTest, AFailedConnectionIsReportedAndEndsLikeALostOne)
{
    const ExpectUnhandled expected;
    client = std::make_unique<Client>(*loop, "\\\\.\\pipe\\nobody-listens-here", "Name", true);
    settle();
    EXPECT_EQ(client->delegate.quits, 1);
    EXPECT_EQ(client->delegate.terminationRequests, 1);
    EXPECT_EQ(expected.messages().size(), 1u);
    EXPECT_THROW(client->worker->connect(), fn::RuntimeException) << "a worker connects once";
    ipc::Worker fresh(client->delegate, *loop, "\\\\.\\pipe\\x", "Name", {}, false);
    EXPECT_THROW(fresh.stop(), fn::NullPointerException);
}

TEST_F(WorkerTest, AnIdleModuleHidesLooksAgainAndAsksToBeEnded)
{
    welcome(true);
    client->delegate.wantsIdle = client->delegate.mayTerminate = true;
    /// What it asks the registry for after so long: whether to hide its objects. The answer follows at once.
    const auto asks = [&](std::int64_t seconds, const char* answer = "CALL_RESPONSE") {
        hub->clear();
        clock.advance(fn::Duration::seconds(seconds));
        settle();
        const auto* asked = hub->last(type::MESSAGE);
        if (!asked) return std::optional<bool>();
        const auto payload = decoded(*asked);
        auto reply = objectMessage(0, 5,
            Value::map({ { "TYPE", answer }, { "REQUEST_ID", payload.at("REQUEST_ID") }, { "RESULT", {} },
                { "ERROR", "no" } }));
        reply.set(field::SOURCE_WORKER_ID, 0);
        deliver(reply);
        return std::optional(payload.at("ARGUMENT").toBool());
    };
    constexpr auto nothing = std::nullopt;
    deliver(message(call("wake")));
    EXPECT_EQ(asks(599), nothing);
    deliver(message(call("wake"))); // Starts again.
    EXPECT_EQ(asks(599), nothing);
    EXPECT_EQ(asks(1), true);
    // Somebody gets an object in the last second: shown again, and counted down again.
    service->sendResult(service->calls[0].context, Value::array({ service, fn::makeAuto<Service>(*client->worker) }));
    settle();
    EXPECT_EQ(asks(1), false);
    EXPECT_EQ(asks(600), nothing) << "an object that somebody holds keeps the module";
    for (const ObjectId id : { service->objectId(), service->objectId() + (1 << 16) }) deliver(instanceRelease(id, 1));
    EXPECT_EQ(asks(600, "CALL_ERROR"), true);
    EXPECT_EQ(asks(1), nothing) << "a refusal ends the attempt, not the countdown";
    EXPECT_EQ(asks(600), true);
    EXPECT_EQ(client->delegate.terminationRequests, 0);
    EXPECT_EQ(asks(1), nothing);
    EXPECT_EQ(client->delegate.terminationRequests, 1);
}
