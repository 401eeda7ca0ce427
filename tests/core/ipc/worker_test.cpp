// A worker against a dispatcher that speaks by hand. What can break here: fields and order of what a worker says, counts of
// what it receives and sends, objects of the dead, the countdown to its own end, and its reaction to bad bytes and cut pipes.
#include "core/ipc/wire/message_dump.h"
#include "foundation/exceptions.h"
#include "foundation/system/uuid.h"
#include "foundation/time/clock.h"
#include "support/expectations.h"
#include "support/log_capture.h"
#include "support/peer.h"
#include "support/worker.h"
#include <gtest/gtest.h>

namespace {

using fn::Value;
using ipc::ObjectId;
using test::Service;
using test::ServiceReference;
namespace field = ipc::field;
namespace type = ipc::type;

class WorkerTest : public testing::Test {
protected:
    void start(bool ownProcess = false)
    {
        name = "\\\\.\\pipe\\worker-test-" + fn::UUIDGenerator::defaultGenerator().createOne().toString();
        listener = fn::makeAuto<fn::uv::PipeStream>(*loop);
        listener->bind(name);
        listener->listen(8, [this](const fn::uv::Status&) { hub = std::make_unique<test::Peer>(*loop, *listener); });
        client = std::make_unique<test::Client>(*loop, name, "Name", ownProcess);
        ASSERT_TRUE(test::runUntil(*loop, [&] { return hub && hub->count(type::HELLO) == 1; }));
    }

    /// Connects with id 5.
    void welcome(bool ownProcess = false)
    {
        start(ownProcess);
        hub->send(Value::map({ { field::TYPE, type::HELLO }, { field::WORKER_ID, 5 } }));
        ASSERT_TRUE(test::runUntil(*loop, [&] { return client->isConnected(); }));
        hub->clear();
        client->worker->registerObjectReferenceClass<ServiceReference>();
        service = fn::makeAuto<Service>(*client->worker);
        test::runTurns(*loop);
    }

    void TearDown() override
    {
        if (service) service->calls.clear();
        service.reset();
        client.reset();
        hub.reset();
        listener.reset();
        loop.reset();
        EXPECT_EQ(Service::alive, 0);
    }

    /// Sends a message for the service from worker 2, and waits until it has been handled.
    void deliver(const Value& payload, std::initializer_list<std::pair<ObjectId, const char*>> objects)
    {
        auto message = test::objectMessage(service->objectId(), 5, payload, objects);
        message.set(field::SOURCE_WORKER_ID, 2);
        hub->send(message);
        settle();
    }

    void settle()
    {
        hub->clear();
        hub->send(Value::map({ { field::TYPE, type::PING } }));
        ASSERT_TRUE(test::runUntil(*loop, [&] { return hub->count(type::PONG) == 1; }));
        test::runTurns(*loop);
    }

    /// Answers the worker's latest call of the registry.
    void answerRegistry(bool reject = false)
    {
        ASSERT_TRUE(test::runUntil(*loop, [&] { return hub->count(type::MESSAGE) > 0; }));
        const auto payload = decoded(*hub->last(type::MESSAGE));
        auto reply = Value::map({ { "TYPE", reject ? "CALL_ERROR" : "CALL_RESPONSE" },
            { "REQUEST_ID", payload.at("REQUEST_ID") }, { reject ? "ERROR" : "RESULT", {} } });
        auto message = test::objectMessage(0, 5, reply);
        message.set(field::SOURCE_WORKER_ID, 0);
        hub->clear();
        hub->send(message);
        settle();
    }

    static Value decoded(const Value& message) { return ipc::translatePayload(message.at(field::PAYLOAD)); }

    fn::ManualClock clock;
    std::unique_ptr<fn::uv::Loop> loop = std::make_unique<fn::uv::Loop>(clock);
    fn::String name;
    fn::AutoPtr<fn::uv::PipeStream> listener;
    std::unique_ptr<test::Peer> hub;
    std::unique_ptr<test::Client> client;
    fn::AutoPtr<Service> service;
};

Value call(const char* method, const Value& argument)
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
    bytes += "\xab"
             "METHOD_NAME"
             "\xa4"
             "take"
             "\xaa"
             "REQUEST_ID"
             "\x09"
             "\xa4"
             "TYPE"
             "\xa4"
             "CALL";
    return fn::ByteArray(bytes);
}

constexpr const char* className = "test::ServiceReference";
constexpr ObjectId foreign = (7 << 16) + 2;

} // namespace

TEST_F(WorkerTest, IntroducesItselfAnswersPingsAndNumbersItsObjects)
{
    start();
    EXPECT_EQ(hub->messages()[0],
        Value::map({ { field::TYPE, type::HELLO }, { field::DISPLAY_NAME, "Name" }, { field::TAG, "" } }));
    EXPECT_EQ(client->worker->workerId(), ipc::NO_WORKER_ID);
    fn::AutoPtr<Service> early;
    {
        const test::ExpectAssertions expected;
        early = fn::makeAuto<Service>(*client->worker);
        EXPECT_EQ(expected.reports(),
            std::vector<std::string> { "libs/core/ipc/worker:207 nextObjectId Worker must be "
                                       "connected before ObjectInstances can be created" });
    }
    hub->send(Value::map({ { field::TYPE, type::HELLO }, { field::WORKER_ID, 5 } }));
    ASSERT_TRUE(test::runUntil(*loop, [&] { return client->isConnected(); }));
    const auto local = early->localReference();
    auto message = test::objectMessage(0, 5, {}, { { early->objectId(), "named by a stranger" } });
    message.set(field::SOURCE_WORKER_ID, 2);
    hub->send(message);
    settle();
    EXPECT_EQ(*hub->last(type::PONG), Value::map({ { field::TYPE, type::PONG } }));
    const auto a = fn::makeAuto<Service>(*client->worker);
    const auto b = fn::makeAuto<Service>(*client->worker);
    EXPECT_EQ(a->objectId(), 5u) << "the early one has used up no number";
    EXPECT_EQ(b->objectId(), (1u << 16) + 5);
    for (const auto& share : { std::function([&] { return client->worker->registry()->callMethod("x", early); }),
             std::function(
                 [&] { return client->worker->registry()->registerObject(early, 0).then([] { return Value(); }); }) }) {
        EXPECT_EQ(test::outcomeOf(*loop, share).error(),
            "RuntimeException: The object cannot be shared: it was made before the worker was connected");
    }
}

TEST_F(WorkerTest, ListsEachObjectOnceAndHoldsItOnceAMessage)
{
    welcome();
    deliver(call("get", {}), {});
    auto given = fn::makeAuto<Service>(*client->worker);
    test::runTurns(*loop);
    const auto context = service->calls[0].context;
    const auto local = given->localReference();
    hub->clear();
    service->sendResult(context, Value::array({ given, given, local, Value::map({ { 1, service } }) }));
    ASSERT_TRUE(test::runUntil(*loop, [&] { return hub->count(type::MESSAGE) == 1; }));
    const auto& message = *hub->last(type::MESSAGE);
    EXPECT_EQ(message.at(field::OBJECTS),
        Value::map({ { given->objectId(), className }, { service->objectId(), className } }));
    EXPECT_EQ(message.at(field::TARGET_WORKER_ID), Value(2));
    EXPECT_EQ(message.at(field::OBJECT_ID), Value(service->objectId()));
    EXPECT_FALSE(message.has(field::SOURCE_WORKER_ID));
    const auto id = given->objectId();
    given.reset();
    const auto release = [&](int count) {
        hub->send(Value::map(
            { { field::TYPE, type::INSTANCE_RELEASE }, { field::OBJECT_ID, id }, { field::USAGE_COUNT, count } }));
        settle();
    };
    EXPECT_EQ(Service::alive, 2);
    {
        // `local` still holds it; more than is held is reported, and takes nothing from others.
        const test::ExpectAssertions expected;
        release(2'000'000'000);
        EXPECT_EQ(expected.reports(), std::vector<std::string> { "libs/core/ipc/worker:169 onMessage instance" });
    }
    EXPECT_EQ(Service::alive, 2);
}

TEST_F(WorkerTest, AnInstanceGoesWithTheLastReleaseAndMessagesForItAreDropped)
{
    welcome();
    deliver(call("get", {}), {});
    auto given = fn::makeAuto<Service>(*client->worker);
    const auto id = given->objectId();
    test::runTurns(*loop);
    for (int i = 0; i < 2; ++i) service->sendResult(service->calls[0].context, given);
    given.reset();
    settle();
    EXPECT_EQ(Service::alive, 2);
    hub->send(
        Value::map({ { field::TYPE, type::INSTANCE_RELEASE }, { field::OBJECT_ID, id }, { field::USAGE_COUNT, 2 } }));
    settle();
    EXPECT_EQ(Service::alive, 1);
    auto message = test::objectMessage(id, 5, call("nobody", {}));
    message.set(field::SOURCE_WORKER_ID, 2);
    hub->send(message);
    settle();
}

TEST_F(WorkerTest, ReleasesAReferenceOnceWithEverythingThatBroughtIt)
{
    welcome();
    const Value brings(callWithObjects({ foreign, foreign, service->objectId() }));
    for (int i = 0; i < 3; ++i) {
        auto message = test::objectMessage(
            service->objectId(), 5, {}, { { foreign, className }, { service->objectId(), className } });
        message.set(field::PAYLOAD, brings);
        message.set(field::SOURCE_WORKER_ID, 2);
        hub->send(message);
    }
    settle();
    ASSERT_EQ(service->calls.size(), 3u);
    const auto& argument = service->calls[0].argument;
    const auto reference = argument[0].object<ServiceReference>();
    ASSERT_TRUE(reference);
    EXPECT_EQ(argument[1].object<ServiceReference>().get(), reference.get());
    EXPECT_EQ(service->calls[2].argument[0].object<ServiceReference>().get(), reference.get());
    EXPECT_EQ(argument[2].object<ServiceReference>().get(), service->localReference().get());
    EXPECT_FALSE(reference->local());
    hub->clear();
    service->calls.clear();
    const_cast<fn::AutoPtr<ServiceReference>&>(reference).reset();
    ASSERT_TRUE(test::runUntil(*loop, [&] { return hub->count(type::REFERENCE_RELEASE) == 1; }));
    EXPECT_EQ(*hub->last(type::REFERENCE_RELEASE),
        Value::map(
            { { field::TYPE, type::REFERENCE_RELEASE }, { field::OBJECT_ID, foreign }, { field::USAGE_COUNT, 3 } }));
    settle();
    EXPECT_EQ(hub->count(type::REFERENCE_RELEASE), 0u);
}

TEST_F(WorkerTest, ObjectsOfTheDeadAreDeadUntilTheirIdIsUsedAgain)
{
    welcome();
    hub->send(Value::map({ { field::TYPE, type::WORKER_DEAD }, { field::WORKER_ID, 2 } }));
    const auto bring = [&] {
        auto message = test::objectMessage(service->objectId(), 5, {}, { { foreign, className } });
        message.set(field::PAYLOAD, callWithObjects({ foreign }));
        message.set(field::SOURCE_WORKER_ID, 3);
        hub->send(message);
        settle();
        return service->calls.back().argument[0].object<ServiceReference>();
    };
    /// What others get of it.
    const auto objectsOf = [&](const fn::AutoPtr<ServiceReference>& reference) {
        service->broadcastEvent("given", reference);
        settle();
        return std::pair(hub->last(type::MESSAGE)->at(field::OBJECTS).size(),
            decoded(*hub->last(type::MESSAGE)).at("ARGUMENT").isNil());
    };
    const auto dead = bring();
    ASSERT_TRUE(dead && dead->dead());
    EXPECT_EQ(objectsOf(dead), std::pair(1ul, false));
    hub->send(Value::map({ { field::TYPE, type::WORKER_ID_REUSED }, { field::WORKER_ID, 2 } }));
    const auto alive = bring();
    ASSERT_TRUE(alive && !alive->dead());
    EXPECT_TRUE(dead->dead() && alive.get() != dead.get());
    EXPECT_EQ(objectsOf(alive), std::pair(1ul, false));
    EXPECT_EQ(objectsOf(dead), std::pair(0ul, true)) << "its id names the new worker's object";
    dead->sendMessage("for the old one");
    settle();
    EXPECT_EQ(hub->count(type::MESSAGE), 0u);
}

TEST_F(WorkerTest, WarnsOfClassesThatNobodyRegistered)
{
    welcome();
    const test::LogCapture log;
    auto message = test::objectMessage(service->objectId(), 5, {}, { { foreign, "some::Class" } });
    message.set(field::PAYLOAD, callWithObjects({ foreign }));
    message.set(field::SOURCE_WORKER_ID, 2);
    hub->send(message);
    settle();
    EXPECT_TRUE(
        log.contains("2 core.ipc.ObjectReferenceFactory Couldn't create reference for class some::Class. Did you call "
                     "'registerObjectReferenceClass()'?"));
    const auto plain = service->calls[0].argument[0].object<ipc::ObjectReference>();
    EXPECT_EQ(plain->className(), "some::Class");
    EXPECT_FALSE(fn::dynamicCast<ServiceReference>(plain));
}

TEST_F(WorkerTest, DropsMessagesThatItCannotReadAndGoesOn)
{
    welcome();
    const auto whole = [&] {
        auto message = test::objectMessage(service->objectId(), 5, call("x", {}));
        message.set(field::SOURCE_WORKER_ID, 2);
        return message;
    };
    std::vector<Value> bad;
    for (const int key : { field::OBJECT_ID, field::SOURCE_WORKER_ID, field::OBJECTS }) {
        bad.push_back(whole());
        bad.back().remove(key);
    }
    bad.push_back(whole());
    bad.back().set(field::PAYLOAD, "text");
    bad.push_back(whole());
    bad.back().set(field::PAYLOAD, fn::ByteArray("\xc1"));
    bad.push_back(Value(Value::MAP));
    {
        const test::ExpectUnhandled expected;
        for (const auto& message : bad) hub->send(message);
        settle();
        ASSERT_EQ(expected.messages().size(), bad.size());
        EXPECT_NE(expected.messages()[3].find("Invalid boxed type"), std::string::npos);
    }
    EXPECT_TRUE(service->calls.empty());
    {
        const test::ExpectAssertions expected;
        auto message = whole();
        message.set(field::PAYLOAD,
            fn::ByteArray("\xd6\x01"
                          "abcd"));
        hub->send(message);
        message.set(field::PAYLOAD, callWithObjects({ (99 << 16) + 5 }));
        hub->send(message);
        settle();
        EXPECT_EQ(expected.reports(),
            (std::vector<std::string> { "libs/core/ipc/worker:377 deserializeValue size == sizeof(ObjectId)",
                "libs/core/ipc/worker:384 deserializeValue i" }));
    }
    auto silent = whole();
    silent.remove(field::PAYLOAD);
    hub->send(silent);
    hub->send(Value::map({ { field::TYPE, 99 } }));
    deliver(call("after", {}), {});
    EXPECT_EQ(service->calls.back().name, "after");
}

TEST_F(WorkerTest, WhatABrokenPayloadListsIsReleasedAllTheSame)
{
    welcome();
    constexpr ObjectId behind = foreign + (1 << 16);
    auto message = test::objectMessage(service->objectId(), 5, {},
        { { foreign, className }, { behind, className }, { service->objectId(), className } });
    const auto whole = callWithObjects({ foreign, behind });
    const auto size = whole.view().find("METHOD_NAME") - 5; // The second id is cut.
    message.set(field::PAYLOAD, fn::ByteArray(whole.view().substr(0, size)));
    message.set(field::SOURCE_WORKER_ID, 2);
    const test::ExpectUnhandled expected;
    hub->send(message);
    ASSERT_TRUE(test::runUntil(*loop, [&] { return hub->count(type::REFERENCE_RELEASE) == 2; }));
    std::map<ObjectId, std::int64_t> released; // The dispatcher has counted each once.
    for (const auto& sent : hub->messages()) {
        if (sent.at(field::TYPE) == Value(type::REFERENCE_RELEASE))
            released[sent.at(field::OBJECT_ID).to<ObjectId>()] += sent.at(field::USAGE_COUNT).to<std::int64_t>();
    }
    EXPECT_EQ(released, (std::map<ObjectId, std::int64_t> { { foreign, 1 }, { behind, 1 } }));
    EXPECT_EQ(expected.messages().size(), 1u);
}

TEST_F(WorkerTest, AReceiverMayDestroyTheWorkerThatCallsIt)
{
    using Send = std::function<void()>;
    const auto plain = [&] {
        auto message = test::objectMessage(service->objectId(), 5, call("end", {}));
        message.set(field::SOURCE_WORKER_ID, 2);
        hub->send(message);
    };
    const auto withObject = [&] {
        auto message = test::objectMessage(service->objectId(), 5, {}, { { foreign, className } });
        message.set(field::PAYLOAD, callWithObjects({ foreign }));
        message.set(field::SOURCE_WORKER_ID, 2);
        hub->send(message);
    };
    const auto death = [&] {
        hub->send(Value::map({ { field::TYPE, type::WORKER_DEAD }, { field::WORKER_ID, ipc::ownerOf(foreign) } }));
    };
    for (const Send& last : { Send(plain), Send(withObject), Send(death), Send([&] { hub->close(); }) }) {
        welcome(true);
        withObject();
        settle();
        const auto reference = service->calls[0].argument[0].object<ServiceReference>();
        reference->objectDeadSignal().connect([&] { client->worker.reset(); }).detach();
        service->answer = [&](const Service::Call&) { client->worker.reset(); };
        last();
        plain(); // In the same chunk: comes too late.
        ASSERT_TRUE(test::runUntil(*loop, [&] { return !client->worker; }));
        EXPECT_TRUE(reference->dead());
        test::runTurns(*loop);
        EXPECT_EQ(client->delegate.terminationRequests, 0) << "of a worker that has gone";
        service->calls.clear();
        service->answer = nullptr;
        service.reset();
        client.reset();
        hub.reset();
    }
}

TEST_F(WorkerTest, ALostDispatcherIsToldOnceAndEndsAModuleProcess)
{
    for (const bool ownProcess : { false, true }) {
        welcome(ownProcess);
        fn::AutoPtr<ServiceReference> reference;
        auto message = test::objectMessage(service->objectId(), 5, {}, { { foreign, className } });
        message.set(field::PAYLOAD, callWithObjects({ foreign }));
        message.set(field::SOURCE_WORKER_ID, 2);
        hub->send(message);
        hub->send(Value::map({ { field::TYPE, type::QUIT } }));
        settle();
        EXPECT_EQ(client->delegate.quits, 1);
        reference = service->calls[0].argument[0].object<ServiceReference>();
        hub->close();
        ASSERT_TRUE(test::runUntil(*loop, [&] { return reference->dead(); }));
        EXPECT_EQ(client->delegate.quits, 1) << "told already";
        EXPECT_EQ(client->delegate.terminationRequests, ownProcess ? 1 : 0);
        EXPECT_FALSE(client->worker->isConnected());
        service->broadcastEvent("nobody hears", 1);
        reference.reset();
        service->calls.clear();
        service.reset();
        client.reset();
        hub.reset();
    }
}

TEST_F(WorkerTest, AFailedConnectionIsReportedAndEndsLikeALostOne)
{
    const test::ExpectUnhandled expected;
    client = std::make_unique<test::Client>(*loop, "\\\\.\\pipe\\nobody-listens-here", "Name", true);
    ASSERT_TRUE(test::runUntil(*loop, [&] { return client->delegate.quits == 1; }));
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
    const auto argument = [&] { return decoded(*hub->last(type::MESSAGE)).at("ARGUMENT"); };
    const auto pass = [&](std::int64_t seconds) {
        clock.advance(fn::Duration::seconds(seconds));
        test::runTurns(*loop);
    };
    deliver(call("wake", {}), {});
    pass(599);
    EXPECT_EQ(hub->count(type::MESSAGE), 0u);
    deliver(call("wake", {}), {}); // Starts again.
    pass(599);
    EXPECT_EQ(hub->count(type::MESSAGE), 0u);
    pass(1);
    ASSERT_EQ(hub->count(type::MESSAGE), 1u);
    EXPECT_EQ(argument(), Value(true));
    answerRegistry();
    // Somebody gets an object in the last second: shown again, and counted down again.
    service->sendResult(service->calls[0].context, Value::array({ service, fn::makeAuto<Service>(*client->worker) }));
    hub->clear();
    pass(1);
    ASSERT_TRUE(test::runUntil(*loop, [&] { return hub->count(type::MESSAGE) >= 1; }));
    EXPECT_EQ(argument(), Value(false));
    answerRegistry();
    EXPECT_EQ(client->delegate.terminationRequests, 0);
    pass(600);
    EXPECT_EQ(hub->count(type::MESSAGE), 0u) << "an object that somebody holds keeps the module";
    for (ObjectId id : { service->objectId(), service->objectId() + (1 << 16) }) {
        hub->send(Value::map(
            { { field::TYPE, type::INSTANCE_RELEASE }, { field::OBJECT_ID, id }, { field::USAGE_COUNT, 1 } }));
    }
    settle();
    hub->clear();
    pass(600);
    answerRegistry(true); // A refusal ends the attempt, not the countdown.
    pass(1);
    EXPECT_EQ(client->delegate.terminationRequests, 0);
    pass(600);
    answerRegistry();
    pass(1);
    EXPECT_EQ(client->delegate.terminationRequests, 1);
}
