// A worker among strangers. What can break here: what it lists and counts of what it sends and receives, objects of the dead, the
// countdown to its own end, and its reaction to bad bytes and cut pipes.
#include "core/ipc/registry_impl.h"
#include "foundation/exceptions.h"
#include "foundation/system/uuid.h"
#include "hub_fixture.h"
#include "support/expectations.h"
#include "support/log_capture.h"
#include <algorithm>

namespace {

using namespace test;

constexpr const char* className = "test::ServiceReference";

Value call(const char* method)
{
    return Value::map({ { "TYPE", "CALL" }, { "METHOD_NAME", method }, { "REQUEST_ID", 9 } });
}

/// A call of "take" whose argument names objects by id.
fn::ByteArray callWithObjects(std::initializer_list<ObjectId> ids)
{
    const auto text = [](const std::string& text) { return static_cast<char>(0xa0 + text.size()) + text; };
    auto bytes = '\x84' + text("ARGUMENT") + static_cast<char>(0x90 + ids.size());
    for (const auto id : ids) {
        bytes += "\xd7\x01";
        for (int i = 0; i < 8; ++i) bytes += static_cast<char>(id >> (8 * i));
    }
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

    using Objects = std::initializer_list<std::pair<ObjectId, const char*>>;

    /// For the service.
    Value message(const Value& payload, Objects objects = {}) const
    {
        return objectMessage(service->objectId(), ipc::ownerOf(service->objectId()), payload, objects);
    }

    Value carrying(const Value& payload, Objects objects = {}) const
    {
        auto message = this->message({}, objects);
        message.set(field::PAYLOAD, payload);
        return message;
    }

    Value bringing(ObjectId id) const { return carrying(callWithObjects({ id }), { { id, className } }); }

    /// The object that the latest call has brought.
    fn::AutoPtr<ServiceReference> taken() const { return service->calls.back().argument[0].object<ServiceReference>(); }

    std::unique_ptr<Client> worker = client("Name", true);
    fn::AutoPtr<Service> service = fn::makeAuto<Service>(*worker->worker);
    std::unique_ptr<Peer> peer = join();
    ObjectId foreign = objectOf(peer->id(), 7); ///< An object of the peer.
};

} // namespace

TEST_F(WorkerTest, SharesNothingThatItHadBeforeItWasConnected)
{
    Client late(loop, dispatcher->pipePath());
    const auto make = [&] { return fn::makeAuto<Service>(*late.worker); };
    fn::AutoPtr<Service> early;
    {
        const ExpectAssertions expected;
        early = make();
        EXPECT_EQ(expected.reports(),
            std::vector<std::string> { "libs/core/ipc/worker:207 nextObjectId Worker must be "
                                       "connected before ObjectInstances can be created" });
    }
    settle();
    const auto id = late.worker->workerId();
    const auto local = early->localReference();
    deliver(objectMessage(0, id, {}, { { early->objectId(), "named by a stranger" } }));
    EXPECT_EQ(make()->objectId(), id) << "the early one has used up no number";
    EXPECT_EQ(make()->objectId(), objectOf(id, 1));
    const auto& registry = late.worker->registry();
    for (const auto& share : { std::function([&] { return registry->callMethod("x", early); }),
             std::function([&] { return registry->registerObject(early, 0).then([] { return Value(); }); }) }) {
        EXPECT_EQ(outcome(share).error(),
            "RuntimeException: The object cannot be shared: it was made before the worker was connected");
    }
}

TEST_F(WorkerTest, ObjectsOfTheDeadAreDeadUntilTheirIdIsUsedAgain)
{
    const auto nobody = static_cast<WorkerId>(peer->id() + 1); // As good as dead.
    const auto x = objectOf(nobody, 7);
    const auto counted = dispatcher->usageCounts().objectCount();
    /// Whether others get it.
    const auto isGiven = [&](const fn::AutoPtr<ServiceReference>& reference) {
        peer->clear();
        service->postEvent(peer->id(), "given", reference);
        settle();
        return peer->last(type::MESSAGE)->at(field::OBJECTS).size() == 1;
    };
    deliver(bringing(x));
    const auto dead = taken();
    EXPECT_TRUE(dead->dead() && isGiven(dead));
    EXPECT_EQ(dispatcher->usageCounts().objectCount(), counted) << "what belongs to nobody is not counted";
    const auto heir = join();
    ASSERT_EQ(heir->id(), nobody);
    heir->send(bringing(x));
    settle();
    const auto alive = taken();
    EXPECT_TRUE(!alive->dead() && isGiven(alive));
    EXPECT_TRUE(dead->dead() && !isGiven(dead)) << "its id names the new worker's object";
    heir->clear();
    dead->sendMessage("for the old one");
    settle();
    EXPECT_TRUE(heir->messages().empty());
}

TEST_F(WorkerTest, DropsPayloadsThatItCannotReadAndGoesOn)
{
    struct Row {
        const char* what;
        Value message;
        const char* unhandled; ///< Part of the exception's text; null: none.
        const char* told = nullptr; ///< An assertion or a part of a line in the log.
    };
    const Row rows[] {
        { "text", carrying("text"), "Invalid boxed type" },
        { "no MessagePack", carrying(fn::ByteArray("\xc1")), "Byte that begins no MessagePack value" },
        { "an object id that is cut",
            carrying(fn::ByteArray("\xd6\x01"
                                   "abcd")),
            nullptr, "libs/core/ipc/worker:377 deserializeValue size == sizeof(ObjectId)" },
        { "an object of its own that it does not have",
            carrying(callWithObjects({ objectOf(worker->worker->workerId(), 99) })), nullptr,
            "libs/core/ipc/worker:384 deserializeValue i" },
        { "an object of a class that nobody registered",
            carrying(callWithObjects({ foreign }), { { foreign, "some::Class" } }), nullptr,
            "2 core.ipc.ObjectReferenceFactory Couldn't create reference for class some::Class. Did you call "
            "'registerObjectReferenceClass()'?" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const ExpectUnhandled unhandled;
        const ExpectAssertions assertions;
        const LogCapture log(2);
        deliver(row.message);
        ASSERT_EQ(unhandled.messages().size(), row.unhandled ? 1u : 0u);
        EXPECT_TRUE(!row.unhandled || unhandled.messages()[0].find(row.unhandled) != std::string::npos);
        const auto reports = assertions.reports();
        EXPECT_TRUE(!row.told || log.contains(row.told) || reports == std::vector<std::string> { row.told });
        deliver(message(call("after")));
        EXPECT_EQ(service->calls.back().name, "after");
    }
}

TEST_F(WorkerTest, ReleasesWhatIsListedBesideItsOwn)
{
    deliver(carrying(callWithObjects({ foreign }), { { service->objectId(), className }, { foreign, className } }));
    EXPECT_EQ(peer->count(type::INSTANCE_RELEASE), 0u);
    service->calls.clear();
    settle();
    EXPECT_EQ(peer->count(type::INSTANCE_RELEASE), 1u);
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
        const auto reference = taken();
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

TEST_F(WorkerTest, AHubThatSaysNonsenseIsReportedAndServed)
{
    const auto name = "\\\\.\\pipe\\worker-test-" + fn::UUIDGenerator::defaultGenerator().createOne().toString();
    const auto listener = fn::makeAuto<fn::uv::PipeStream>(loop);
    std::unique_ptr<Peer> hub;
    listener->bind(name);
    listener->listen(8, [&](const fn::uv::Status&) { hub = std::make_unique<Peer>(loop, *listener); });
    const Client client(loop, name, "Name");
    settle();
    EXPECT_EQ(hub->messages(),
        std::vector {
            Value::map({ { field::TYPE, type::HELLO }, { field::DISPLAY_NAME, "Name" }, { field::TAG, "" } }) });
    hub->send(Value::map({ { field::TYPE, type::HELLO }, { field::WORKER_ID, 5 } }));
    settle();
    const auto held = fn::makeAuto<Service>(*client.worker);
    const auto without = [&](int key) {
        auto message = objectMessage(held->objectId(), 5, call("x"));
        message.set(field::SOURCE_WORKER_ID, 2);
        message.remove(key);
        return message;
    };
    const auto release = [](ObjectId id, int count) {
        return Value::map(
            { { field::TYPE, type::INSTANCE_RELEASE }, { field::OBJECT_ID, id }, { field::USAGE_COUNT, count } });
    };
    struct Row {
        const char* what;
        Value message;
        std::size_t unhandled, assertions;
    };
    const Row rows[] {
        { "no object", without(field::OBJECT_ID), 1, 0 },
        { "no source", without(field::SOURCE_WORKER_ID), 1, 0 },
        { "no list", without(field::OBJECTS), 1, 0 },
        { "no payload", without(field::PAYLOAD), 0, 0 },
        { "no type", Value(Value::MAP), 1, 0 },
        { "an unknown type", Value::map({ { field::TYPE, 99 } }), 0, 0 },
        { "more uses than there are", release(held->objectId(), 2'000'000'000), 0, 1 },
        { "an object that has gone", release(held->objectId() + (1 << 16), 1), 0, 1 },
    };
    for (const auto& row : rows) {
        const ExpectUnhandled unhandled;
        const ExpectAssertions assertions;
        hub->clear();
        hub->send(row.message);
        hub->send(Value::map({ { field::TYPE, type::PING } }));
        settle();
        EXPECT_EQ(unhandled.messages().size(), row.unhandled) << row.what;
        EXPECT_EQ(assertions.reports(),
            std::vector<std::string>(row.assertions, "libs/core/ipc/worker:169 onMessage instance"))
            << row.what;
        EXPECT_EQ(hub->messages(), std::vector { Value::map({ { field::TYPE, type::PONG } }) }) << row.what;
    }
    EXPECT_TRUE(held->calls.empty());
}

TEST_F(WorkerTest, ALostHubIsToldOnceAndEndsAModuleProcess)
{
    const auto within = client("Within the main process");
    loop.post([&] { dispatcher->stop(timeout, {}); });
    settle();
    dispatcher.reset();
    settle();
    for (const auto& each : { worker.get(), within.get() }) {
        EXPECT_EQ(each->delegate.quits, 1);
        EXPECT_EQ(each->delegate.terminationRequests, each == worker.get() ? 1 : 0);
        EXPECT_FALSE(each->worker->isConnected());
    }
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
    ipc::Worker fresh(worker->delegate, loop, "\\\\.\\pipe\\x", "Name", {}, false);
    EXPECT_THROW(fresh.stop(), fn::NullPointerException);
}

TEST_F(WorkerTest, AnIdleModuleHidesLooksAgainAndAsksToBeEnded)
{
    worker->delegate.wantsIdle = worker->delegate.mayTerminate = true;
    outcome([&] { return worker->worker->registry()->registerObject(service, 0); });
    /// Whether its objects are hidden after so long, and whether it has asked.
    const auto state = [&](std::int64_t seconds) {
        pass(fn::Duration::seconds(seconds));
        const auto registrations = dispatcher->registryImpl()->registrations(0, 10);
        const bool isHidden = std::ranges::any_of(registrations, [](const auto& each) { return each.hidden; });
        return worker->delegate.terminationRequests > 0 ? "asks" : isHidden ? "hidden" : "shown";
    };
    deliver(message(call("wake")));
    EXPECT_STREQ(state(599), "shown");
    deliver(message(call("wake"))); // Starts again.
    EXPECT_STREQ(state(599), "shown");
    EXPECT_STREQ(state(1), "hidden");
    auto lent = fn::makeAuto<Service>(*worker->worker);
    const auto id = lent->objectId();
    service->sendResult(service->calls[0].context, std::move(lent));
    EXPECT_STREQ(state(1), "shown") << "it looks again in the last second";
    EXPECT_STREQ(state(600), "shown") << "an object that somebody holds keeps the module";
    peer->send(release(id, 1));
    settle();
    EXPECT_STREQ(state(599), "shown");
    EXPECT_STREQ(state(1), "hidden");
    EXPECT_STREQ(state(1), "asks");
}
