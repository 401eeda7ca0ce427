// A worker among strangers. What can break here: its reaction to bad bytes and cut pipes, whoever ends it while it works, and the
// countdown to its own end.
#include "base/exceptions.h"
#include "core/ipc/dispatcher/hub_inspection.h"
#include "hub_fixture.h"
#include "support/expectations.h"
#include "support/log_capture.h"
#include <algorithm>
#include <unistd.h>

namespace {

using namespace test;

Value call(const char* method)
{
    return Value::map({ { "TYPE", "CALL" }, { "METHOD_NAME", method }, { "REQUEST_ID", 9 } });
}

/// A call of "take" whose argument names an object by id.
fn::ByteArray callWith(ObjectId id)
{
    const auto text = [](const std::string& text) { return static_cast<char>(0xa0 + text.size()) + text; };
    auto bytes = '\x84' + text("ARGUMENT") + "\xd7\x01";
    for (int i = 0; i < 8; ++i) bytes += static_cast<char>(id >> (8 * i));
    bytes += text("METHOD_NAME") + text("take") + text("REQUEST_ID") + '\x09' + text("TYPE") + text("CALL");
    return fn::ByteArray(bytes);
}

class WorkerTest : public HubTest {
protected:
    ~WorkerTest() override { leave(); }

    void leave()
    {
        service->calls.clear();
        service.reset();
        worker.reset();
    }

    void deliver(const Value& message)
    {
        peer->clear();
        peer->send(message);
        settle();
    }

    /// For the service.
    Value message(const Value& payload) const
    {
        return objectMessage(service->objectId(), ipc::ownerOf(service->objectId()), payload);
    }

    Value carrying(const Value& payload, const Value& objects = Value(Value::MAP)) const
    {
        auto message = this->message({});
        message.set(field::PAYLOAD, payload);
        message.set(field::OBJECTS, objects);
        return message;
    }

    Value bringing(ObjectId id, const char* name = "test::ServiceReference") const
    {
        return carrying(callWith(id), Value::map({ { id, name } }));
    }

    std::unique_ptr<Client> worker = client("Name", true);
    fn::AutoPtr<Service> service = fn::makeAuto<Service>(*worker->worker);
    std::unique_ptr<Peer> peer = join();
    ObjectId foreign = objectOf(peer->id(), 7); ///< An object of the peer.
};

} // namespace

TEST_F(WorkerTest, TellsOfPayloadsThatItCannotReadAndGoesOn)
{
    const std::pair<const char*, Value> rows[] {
        { "text", carrying("text") },
        { "no MessagePack", carrying(fn::ByteArray("\xc1")) },
        { "an object id that is cut", carrying(fn::ByteArray("\xd6\x01wxyz")) },
        { "an object of its own that it does not have", carrying(callWith(objectOf(worker->worker->workerId(), 99))) },
        { "an object of a class that nobody registered", bringing(foreign, "some::Class") },
    };
    for (const auto& [what, bad] : rows) {
        const ExpectUnhandled unhandled;
        const ExpectAssertions assertions;
        const LogCapture log(2);
        deliver(bad);
        EXPECT_TRUE(log.contains("class some::Class. Did you call 'registerObjectReferenceClass()'?")
            || unhandled.messages().size() + assertions.reports().size() == 1)
            << what;
        deliver(message(call("after")));
        EXPECT_EQ(service->calls.back().name, "after") << what;
    }
}

TEST_F(WorkerTest, WhatAMessageListsIsReleasedAlsoWhereItBringsNoPayload)
{
    auto bad = carrying("text", Value::map({ { foreign, "test::ServiceReference" } }));
    const auto before = ipc::HubInspection(*dispatcher).objectCount();
    const ExpectUnhandled unhandled; // No bytes.
    for (int time = 0; time < 2; ++time) {
        deliver(bad);
        EXPECT_EQ(ipc::HubInspection(*dispatcher).objectCount(), before) << bad.toString().view();
        bad.remove(field::PAYLOAD);
    }
    EXPECT_EQ(unhandled.messages().size(), 1u);
}

TEST_F(WorkerTest, AReceiverMayDestroyTheWorkerThatCallsIt)
{
    const auto other = join();
    const std::pair<const char*, std::function<void()>> rows[] {
        { "a call", [&] { peer->send(message(call("end"))); } },
        { "a call with an object", [&] { peer->send(bringing(foreign)); } },
        { "a death", [&] { peer->close(); } },
        { "a lost hub", [&] { dispatcher.reset(); } },
    };
    for (const auto& [what, act] : rows) {
        SCOPED_TRACE(what);
        deliver(bringing(foreign));
        const auto reference = service->calls.back().argument.object<ServiceReference>();
        reference->objectDeadSignal().connect([&] { worker->worker.reset(); }).detach();
        service->answer = [&](const Service::Call&) { worker->worker.reset(); };
        const auto late = message(call("late"));
        act();
        other->send(late); // In the same chunk.
        settle();
        EXPECT_TRUE(!worker->worker && reference->dead());
        EXPECT_EQ(worker->delegate.terminationRequests, 0) << "of a worker that has gone";
        if (!dispatcher) break;
        leave();
        worker = client("Next", true);
        service = fn::makeAuto<Service>(*worker->worker);
        peer = join();
        foreign = objectOf(peer->id(), 7);
    }
}

TEST_F(WorkerTest, CloseTellsOfTheClosedPipeAlsoBehindStop)
{
    std::string order;
    loop.post([&] {
        worker->worker->stop();
        worker->worker->close([&] { order += "closed"; });
        loop.post([&] { order += "next turn, "; }); // Too early for the hub to have answered.
    });
    settle();
    EXPECT_EQ(order, "next turn, closed");
}

TEST_F(WorkerTest, AHubThatSaysNonsenseIsReportedAndServed)
{
    const fn::String name = "\\\\.\\pipe\\worker-test-" + std::to_string(::getpid());
    const auto listener = fn::makeAuto<fn::uv::PipeStream>(loop);
    std::unique_ptr<Peer> hub;
    listener->bind(name);
    listener->listen(8, [&](const fn::uv::Status&) { hub = std::make_unique<Peer>(loop, *listener); });
    const Client client(loop, name, "Name");
    settle();
    hub->send(Value::map({ { field::TYPE, type::HELLO }, { field::WORKER_ID, 5 } }));
    settle();
    const auto held = fn::makeAuto<Service>(*client.worker);
    auto withoutObject = objectMessage(held->objectId(), 5, call("x"));
    withoutObject.remove(field::OBJECT_ID);
    auto tooMany = release(held->objectId(), 2'000'000'000);
    tooMany.set(field::TYPE, type::INSTANCE_RELEASE);
    for (const auto& message : { withoutObject, tooMany, Value(Value::MAP) }) {
        const ExpectUnhandled unhandled;
        const ExpectAssertions assertions;
        hub->clear();
        hub->send(message);
        hub->send(Value::map({ { field::TYPE, type::PING } }));
        settle();
        EXPECT_EQ(unhandled.messages().size() + assertions.reports().size(), 1u) << message;
        EXPECT_EQ(hub->messages(), std::vector { Value::map({ { field::TYPE, type::PONG } }) }) << message;
    }
    EXPECT_TRUE(held->calls.empty());
}

TEST_F(WorkerTest, AFailedConnectionIsReportedAndEndsLikeALostOne)
{
    const ExpectUnhandled expected;
    const Client client(loop, "\\\\.\\pipe\\nobody-listens-here", "Name", true);
    settle();
    EXPECT_EQ(client.delegate.quits, 1);
    EXPECT_EQ(client.delegate.terminationRequests, 1);
    EXPECT_EQ(expected.messages().size(), 1u);
    EXPECT_THROW(client.worker->connect(), fn::RuntimeException) << "a worker connects once";
}

TEST_F(WorkerTest, AnIdleModuleHidesLooksAgainAndAsksToBeEnded)
{
    worker->delegate.wantsIdle = worker->delegate.mayTerminate = true;
    outcome([&] { return worker->worker->registry()->registerObject(service, 0); });
    /// Whether its objects are hidden after so long, and whether it has asked.
    const auto state = [&](std::int64_t seconds) {
        pass(fn::Duration::seconds(seconds));
        const auto registrations = ipc::HubInspection(*dispatcher).registrations(0, 10);
        const bool isHidden = std::ranges::any_of(registrations, [](const auto& each) { return each.hidden; });
        return worker->delegate.terminationRequests > 0 ? "asks" : isHidden ? "hidden" : "shown";
    };
    deliver(message(call("wake")));
    EXPECT_STREQ(state(599), "shown");
    {
        const ExpectUnhandled expected;
        deliver(message(Value::map({ { "TYPE", "CALL" }, { "REQUEST_ID", "none" } }))); // Starts again all the same.
        EXPECT_EQ(expected.messages().size(), 1u);
    }
    EXPECT_STREQ(state(599), "shown");
    EXPECT_STREQ(state(1), "hidden");
    service->sendResult(service->calls[0].context, fn::makeAuto<Service>(*worker->worker));
    EXPECT_STREQ(state(1), "shown") << "it looks again in the last second";
    peer->close();
    settle();
    EXPECT_STREQ(state(600), "hidden");
    EXPECT_STREQ(state(1), "asks");
}
