// The hub as strangers see it. What can break here: an id given twice, a message that reaches the wrong worker or none, a
// count that keeps an object for ever, a death not told, a ping that fires twice, one bad peer that disturbs the others.
#include "core/app_info.h"
#include "core/ipc/dispatcher/dispatcher.h"
#include "core/ipc/dispatcher/instance_release.h"
#include "core/ipc/dispatcher/open_files.h"
#include "core/ipc/limits.h"
#include "core/ipc/registry.h"
#include "foundation/time/clock.h"
#include "foundation/unhandled_exception.h"
#include "support/expectations.h"
#include "support/log_capture.h"
#include "support/peer.h"
#include "support/run_until.h"
#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <sys/resource.h>

namespace {

using fn::Value;
using ipc::ObjectId;
using ipc::WorkerId;
namespace field = ipc::field;
namespace type = ipc::type;

constexpr auto timeout = fn::Duration::seconds(30);

class DispatcherTest : public testing::Test {
protected:
    void SetUp() override
    {
        core::AppInfo::initialize(core::AppInfo::App::Skyfold);
        dispatcher.onWorkerConnected()
            .connect([this](const auto& info) { connected.push_back(info.toString()); })
            .detach();
        dispatcher.onWorkerNotResponding()
            .connect([this](const auto& info) { silent.push_back(info.workerId); })
            .detach();
        dispatcher.onWorkerDisconnected().connect([this](const auto& info) { gone.push_back(info.workerId); }).detach();
        bool ready = false;
        dispatcher.onReady().connect([&] { ready = true; }).detach();
        dispatcher.bind();
        dispatcher.start();
        ASSERT_TRUE(test::runUntil(loop, [&] { return ready; }));
    }

    std::unique_ptr<test::Peer> join(const char* name = "Peer", const char* tag = "")
    {
        auto peer = std::make_unique<test::Peer>(loop, dispatcher.pipePath());
        peer->hello(name, tag);
        EXPECT_TRUE(test::runUntil(loop, [&] { return peer->id() != ipc::NO_WORKER_ID; }));
        peer->clear();
        return peer;
    }

    std::unique_ptr<test::Peer> stranger()
    {
        auto peer = std::make_unique<test::Peer>(loop, dispatcher.pipePath());
        EXPECT_TRUE(test::runUntil(loop, [&] { return peer->isConnected(); }));
        return peer;
    }

    /// A message that brings `many` objects of `owner` to `receiver`: more than the hub drops at once.
    static Value listing(const test::Peer& owner, const test::Peer& receiver)
    {
        Value objects(Value::MAP);
        for (std::uint64_t i = 0; i < many; ++i) objects.set((i << 16) + owner.id(), "X");
        auto message = test::objectMessage(owner.id(), receiver.id(), {});
        message.set(field::OBJECTS, std::move(objects));
        return message;
    }
    static constexpr std::uint64_t many = 10'000;

    /// All that has been sent so far has been handled: the hub answers this peer's registry call behind it.
    void settle() { test::runTurns(loop, 40); }

    fn::ManualClock clock;
    fn::uv::Loop loop { clock };
    ipc::Dispatcher dispatcher { loop, timeout };
    std::vector<fn::String> connected;
    std::vector<WorkerId> silent;
    std::vector<WorkerId> gone;
};

ObjectId objectOf(WorkerId owner, std::uint64_t sequence) { return (sequence << 16) + owner; }

/// Lets this process have no more than `files` open, for a scope.
class OpenFilesLimit {
public:
    explicit OpenFilesLimit(std::uint64_t files)
    {
        ::getrlimit(RLIMIT_NOFILE, &_before);
        const rlimit limit { files, _before.rlim_max };
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    OpenFilesLimit(const OpenFilesLimit&) = delete;
    OpenFilesLimit& operator=(const OpenFilesLimit&) = delete;
    ~OpenFilesLimit() { ::setrlimit(RLIMIT_NOFILE, &_before); }

private:
    rlimit _before = {};
};

std::uint64_t usedFiles()
{
    const auto [limit, left] = ipc::openFiles();
    return limit - left;
}

Value release(ObjectId id, std::int64_t count)
{
    return Value::map(
        { { field::TYPE, type::REFERENCE_RELEASE }, { field::OBJECT_ID, id }, { field::USAGE_COUNT, count } });
}

} // namespace

TEST_F(DispatcherTest, GivesIdsInHelloOrderAndIgnoresASecondHello)
{
    ASSERT_EQ(connected, std::vector<fn::String> { "DispatcherWorker (0)" });
    const auto first = join("Media", "t1");
    const auto late = stranger();
    const auto second = join("Other");
    late->hello("Late");
    ASSERT_TRUE(test::runUntil(loop, [&] { return late->id() != ipc::NO_WORKER_ID; }));
    EXPECT_EQ(first->id(), 1);
    EXPECT_EQ(second->id(), 2);
    EXPECT_EQ(late->id(), 3);
    first->hello("Again");
    settle();
    EXPECT_TRUE(first->messages().empty());
    EXPECT_EQ(
        connected, (std::vector<fn::String> { "DispatcherWorker (0)", "Media (t1, 1)", "Other (2)", "Late (3)" }));
}

TEST_F(DispatcherTest, RoutesToATargetToHoldersAndFromTheRegistryToEverybody)
{
    const auto a = join();
    const auto b = join();
    const auto c = join();
    const auto unnamed = stranger();
    const auto x = objectOf(a->id(), 1);

    a->send(test::objectMessage(x, b->id(), "hi", { { x, "X" } }));
    ASSERT_TRUE(test::runUntil(loop, [&] { return b->count(type::MESSAGE) == 1; }));
    auto expected = test::objectMessage(x, b->id(), "hi", { { x, "X" } });
    expected.set(field::SOURCE_WORKER_ID, a->id());
    EXPECT_EQ(*b->last(type::MESSAGE), expected) << "only the source is added";

    a->send(test::objectMessage(x, ipc::NO_WORKER_ID, "event"));
    ASSERT_TRUE(test::runUntil(loop, [&] { return b->count(type::MESSAGE) == 2; }));
    c->send(test::objectMessage(ipc::REGISTRY_OBJECT_ID, ipc::NO_WORKER_ID, "all"));
    ASSERT_TRUE(test::runUntil(loop, [&] { return unnamed->count(type::MESSAGE) == 1; }));
    settle();
    EXPECT_EQ(a->count(type::MESSAGE), 1u);
    EXPECT_EQ(b->count(type::MESSAGE), 3u);
    EXPECT_EQ(c->count(type::MESSAGE), 1u) << "the sender, too; but not the object's event: it holds no reference";
    EXPECT_EQ(a->count(type::INSTANCE_RELEASE), 0u);
}

TEST_F(DispatcherTest, TellsTheOwnerWhenNobodyHoldsItsObject)
{
    const auto owner = join();
    const auto holder = join();
    const auto x = objectOf(owner->id(), 7);
    const auto released = [&](std::size_t times) {
        return test::runUntil(loop, [&] { return owner->count(type::INSTANCE_RELEASE) == times; });
    };
    const auto count = [&] { return owner->last(type::INSTANCE_RELEASE)->at(field::USAGE_COUNT); };

    owner->send(test::objectMessage(x, 999, {}, { { x, "X" } }));
    ASSERT_TRUE(released(1)) << "sent to somebody who is not there";
    owner->send(test::objectMessage(x, ipc::NO_WORKER_ID, {}, { { x, "X" } }));
    ASSERT_TRUE(released(2)) << "sent to holders, of whom there is none";
    EXPECT_EQ(count(), Value(1));

    for (int i = 0; i < 2; ++i) owner->send(test::objectMessage(x, holder->id(), i, { { x, "X" } }));
    holder->send(release(x, 1));
    settle();
    EXPECT_EQ(owner->count(type::INSTANCE_RELEASE), 2u) << "one count is left";
    holder->send(release(x, 1));
    ASSERT_TRUE(released(3));
    EXPECT_EQ(owner->last(type::INSTANCE_RELEASE)->at(field::OBJECT_ID), Value(x));
    EXPECT_EQ(count(), Value(2));

    owner->send(test::objectMessage(x, holder->id(), {}, { { x, "X" } }));
    holder->close();
    ASSERT_TRUE(released(4)) << "the only holder has died";
    EXPECT_EQ(owner->last(type::WORKER_DEAD)->at(field::WORKER_ID), Value(holder->id()));
    EXPECT_EQ(gone, std::vector { holder->id() });
}

TEST_F(DispatcherTest, ALargeDeathLetsOthersInBetweenAndIsToldBehindItsReleases)
{
    const auto owner = join();
    const auto other = join();
    const auto holder = join();
    const auto heir = join();
    owner->send(listing(*owner, *holder));
    other->send(listing(*other, *holder));
    ASSERT_TRUE(test::runUntil(loop, [&] { return holder->count(type::MESSAGE) == 2; }));
    const auto before = dispatcher.usageCounts().objectCount();
    holder->close();
    ASSERT_TRUE(test::runUntil(loop, [&] { return dispatcher.usageCounts().objectCount() < before; }));

    // Before all of it has been dropped its objects are sent again, and one of their owners dies.
    owner->send(listing(*owner, *heir));
    ASSERT_TRUE(test::runUntil(loop, [&] { return heir->count(type::MESSAGE) == 1; }));
    EXPECT_TRUE(gone.empty()) << "nobody else was let in";
    other->close();
    ASSERT_TRUE(test::runUntil(loop, [&] { return heir->count(type::WORKER_DEAD) == 2; }));
    EXPECT_EQ(gone, (std::vector { holder->id(), other->id() }));
    for (std::uint64_t i = 0; i < many; ++i) heir->send(release(objectOf(owner->id(), i), 1));
    ASSERT_TRUE(test::runUntil(
        loop, [&] { return owner->last(type::WORKER_DEAD) && dispatcher.usageCounts().ownedCount(owner->id()) == 0; }));
    settle();

    std::map<ObjectId, int> uses;
    std::size_t releasesBehindNotice = 0;
    bool isTold = false;
    for (const auto& message : owner->messages()) {
        if (message.at(field::TYPE) == Value(type::WORKER_DEAD)) isTold = true;
        if (message.at(field::TYPE) != Value(type::INSTANCE_RELEASE)) continue;
        uses[message.at(field::OBJECT_ID).to<ObjectId>()] += message.at(field::USAGE_COUNT).to<int>();
        releasesBehindNotice += isTold;
    }
    EXPECT_EQ(uses.size(), many);
    EXPECT_TRUE(std::ranges::all_of(uses, [](const auto& entry) { return entry.second == 2; })) << "sent twice each";
    EXPECT_EQ(releasesBehindNotice, many) << "those of the heir alone";
    EXPECT_EQ(dispatcher.usageCounts().objectCount(), before - 2 * many);
}

TEST_F(DispatcherTest, NobodyHoldsUpADeathByMentioningItsObjects)
{
    const auto dying =
        stranger(); // The nameless share an id: what one of them lists is counted while another one dies.
    const auto hostile = stranger();
    const auto witness = join();
    dying->send(listing(*dying, *witness));
    ASSERT_TRUE(test::runUntil(loop, [&] { return witness->count(type::MESSAGE) == 1; }));
    dying->close();
    std::uint64_t mentioned = many;
    const auto mention = [&] { // More in each turn than are dropped in one.
        Value objects(Value::MAP);
        for (int i = 0; i < 2000; ++i) objects.set(objectOf(dying->id(), mentioned++), "X");
        auto message = test::objectMessage(hostile->id(), witness->id(), {});
        message.set(field::OBJECTS, std::move(objects));
        hostile->send(message);
    };
    ASSERT_TRUE(test::runUntil(loop, [&] {
        mention();
        return witness->last(type::WORKER_DEAD) != nullptr;
    }));
    EXPECT_EQ(gone, std::vector { dying->id() });
    EXPECT_LT(mentioned, 10 * many);
}

TEST_F(DispatcherTest, ObjectsWithoutAnOwnerAreNotCountedAndAReceiverKnowsFirst)
{
    const auto owner = join();
    const auto carrier = join();
    const auto young = stranger();
    owner->send(listing(*owner, *carrier));
    ASSERT_TRUE(test::runUntil(loop, [&] { return carrier->count(type::MESSAGE) == 1; }));
    const auto before = dispatcher.usageCounts().objectCount() - many;
    const auto madeUp = static_cast<WorkerId>(carrier->id() + 2);
    const auto mention = [&](const test::Peer& receiver) {
        carrier->send(test::objectMessage(0, receiver.id(), {},
            { { 0, "Registry" }, { objectOf(owner->id(), 1), "X" }, { objectOf(madeUp, 1), "X" },
                { objectOf(owner->id(), many), "X" } }));
        settle();
    };
    const auto types = [](const test::Peer& peer) {
        std::vector<int> found;
        for (const auto& message : peer.messages()) found.push_back(message.at(field::TYPE).to<int>());
        return found;
    };
    owner->close();
    ASSERT_TRUE(test::runUntil(loop, [&] { return dispatcher.workers().size() == 2; }));
    mention(*carrier); // The notice of the death is not out yet.
    ASSERT_TRUE(test::runUntil(loop, [&] { return carrier->count(type::WORKER_DEAD) == 2 && !gone.empty(); }));
    EXPECT_EQ(carrier->count(type::MESSAGE), 2u);
    EXPECT_EQ(dispatcher.usageCounts().objectCount(), before);

    young->hello();
    settle();
    young->clear();
    const auto late = join();
    EXPECT_EQ(late->id(), madeUp);
    EXPECT_EQ(types(*carrier).back(), type::WORKER_ID_REUSED) << "what it was told of this id holds no more";
    EXPECT_TRUE(young->messages().empty()) << "it was told nothing of it";
    for (int i = 0; i < 2; ++i) {
        mention(*young);
        mention(*late);
    }
    EXPECT_EQ(types(*young), (std::vector { type::MESSAGE, type::MESSAGE })) << "older than the death";
    EXPECT_EQ(types(*late), (std::vector { type::WORKER_DEAD, type::MESSAGE, type::MESSAGE }));
    EXPECT_EQ(late->messages()[0].at(field::WORKER_ID), Value(owner->id()));
    EXPECT_EQ(dispatcher.usageCounts().ownedCount(owner->id()), 0u);
    EXPECT_EQ(dispatcher.usageCounts().objectCount(), before + 1) << "only the object of who is there now";
}

TEST_F(DispatcherTest, MayGoWhileADeathIsNotOver)
{
    auto hub = std::make_unique<ipc::Dispatcher>(loop, timeout);
    bool ready = false;
    hub->onReady().connect([&] { ready = true; }).detach();
    hub->bind();
    hub->start();
    ASSERT_TRUE(test::runUntil(loop, [&] { return ready; }));
    test::Peer owner(loop, hub->pipePath());
    test::Peer holder(loop, hub->pipePath());
    for (auto* peer : { &owner, &holder }) {
        peer->hello();
        ASSERT_TRUE(test::runUntil(loop, [&] { return peer->id() != ipc::NO_WORKER_ID; }));
    }
    owner.send(listing(owner, holder));
    ASSERT_TRUE(test::runUntil(loop, [&] { return holder.count(type::MESSAGE) == 1; }));
    holder.close();
    ASSERT_TRUE(test::runUntil(loop, [&] { return hub->usageCounts().ownedCount(owner.id()) < many; }));
    EXPECT_GT(hub->usageCounts().ownedCount(owner.id()), 0u);
    hub.reset();
    ASSERT_TRUE(test::runUntil(loop, [&] { return owner.isEnded(); }));
    EXPECT_EQ(owner.count(type::WORKER_DEAD), 0u);
}

TEST(InstanceRelease, IsWhatTheGeneralEncoderWrites)
{
    for (const ObjectId objectId : { 0ull, 127ull, 128ull, 255ull, 256ull, 65'535ull, 65'536ull, 0xFFFF'FFFFull,
             0x1'0000'0000ull, 0x7FFF'FFFF'FFFF'FFFFull, 0xFFFF'FFFF'FFFF'FFFFull }) {
        for (const std::uint32_t count : { 1u, 127u, 128u, 256u, 65'536u, ipc::limits::uses }) {
            const auto message = Value::map({ { field::TYPE, type::INSTANCE_RELEASE }, { field::OBJECT_ID, objectId },
                { field::USAGE_COUNT, count } });
            const auto frame = ipc::encodeInstanceRelease(objectId, count);
            ASSERT_EQ(frame.count(), 1u);
            EXPECT_EQ(frame.parts().front(), ipc::MessageHelper::encode(message).parts().front());
        }
    }
}

TEST_F(DispatcherTest, TellsEverybodyOfADeathAndForgetsTheDead)
{
    const auto a = join();
    const auto b = join();
    const auto unnamed = stranger();
    const auto x = objectOf(b->id(), 1);
    b->send(test::objectMessage(x, a->id(), {}, { { x, "X" } }));
    ASSERT_TRUE(test::runUntil(loop, [&] { return a->count(type::MESSAGE) == 1; }));
    b->close();
    ASSERT_TRUE(test::runUntil(
        loop, [&] { return a->count(type::WORKER_DEAD) == 1 && unnamed->count(type::WORKER_DEAD) == 1; }));
    a->send(release(x, 1)); // The owner has gone, and its counts with it: nobody complains.
    unnamed->close();
    ASSERT_TRUE(test::runUntil(loop, [&] { return a->count(type::WORKER_DEAD) == 2; }));
    EXPECT_EQ(a->last(type::WORKER_DEAD)->at(field::WORKER_ID), Value(0xFFFF));
    EXPECT_EQ(gone, (std::vector<WorkerId> { 2, 0xFFFF }));
    EXPECT_FALSE(a->isEnded());
}

TEST_F(DispatcherTest, PingsEveryThirdOfTheTimeoutAndReportsSilenceOncePerPing)
{
    const auto peer = join();
    const auto answer = Value::map({ { field::TYPE, type::PONG } });
    const auto pass = [&](std::int64_t ms) {
        clock.advance(fn::Duration::milliseconds(ms));
        settle();
    };
    peer->send(answer); // Unasked: the next ping is a third from now all the same.
    settle();
    pass(9'999);
    EXPECT_EQ(peer->count(type::PING), 0u);
    pass(1);
    ASSERT_EQ(peer->count(type::PING), 1u);
    pass(29'999);
    EXPECT_TRUE(silent.empty());
    pass(1);
    EXPECT_EQ(silent, std::vector { peer->id() });
    pass(300'000);
    EXPECT_EQ(silent.size(), 1u);
    EXPECT_EQ(peer->count(type::PING), 1u) << "no further ping before an answer";
    peer->send(answer);
    settle();
    pass(10'000);
    EXPECT_EQ(peer->count(type::PING), 2u) << "a late answer starts the pings again";
    peer->send(answer);
    settle();
    pass(25'000); // Beyond the old deadline.
    EXPECT_EQ(silent.size(), 1u);
    EXPECT_TRUE(gone.empty()) << "the hub itself disconnects nobody for silence";
}

TEST_F(DispatcherTest, AStarvedHubReadsBeforeItAccuses)
{
    const auto peer = join();
    clock.advance(fn::Duration::seconds(10));
    ASSERT_TRUE(test::runUntil(loop, [&] { return peer->count(type::PING) == 1; }));
    // The answer lies in the socket when the deadline has long passed: timers come before I/O.
    peer->send(Value::map({ { field::TYPE, type::PONG } }));
    peer->stream()->readStop();
    loop.post([&] { clock.advance(fn::Duration::seconds(60)); });
    settle();
    EXPECT_TRUE(silent.empty());
}

TEST_F(DispatcherTest, ClosesWhoSaysNoHello)
{
    const auto mute = stranger();
    const auto other = join();
    clock.advance(fn::Duration::seconds(29));
    settle();
    EXPECT_FALSE(mute->isEnded());
    clock.advance(fn::Duration::seconds(1));
    ASSERT_TRUE(test::runUntil(loop, [&] { return mute->isEnded(); }));
    EXPECT_FALSE(other->isEnded());
}

TEST_F(DispatcherTest, ABadMessageEndsItsSenderAndNobodyElse)
{
    const auto witness = join();
    const auto id = [&] { return objectOf(witness->id(), 1); };
    const auto full = [&] { return test::objectMessage(id(), witness->id(), 1); };
    const auto without = [&](int key) {
        auto message = full();
        message.remove(key);
        return message;
    };
    const auto with = [&](int key, const Value& value) {
        auto message = full();
        message.set(key, value);
        return message;
    };
    const auto objects = [&](const Value& key) {
        Value map(Value::MAP);
        map.set(id(), "fine");
        map.set(key, "bad");
        return with(field::OBJECTS, map);
    };
    struct Row {
        const char* what;
        std::string bytes;
    };
    const std::vector<Row> rows {
        { "length 0", std::string(4, '\0') },
        { "length above the bound", "\xff\xff\xff\xff" },
        { "no MessagePack", std::string("\x01\0\0\0\xc1", 5) },
        { "a type that is text", test::frame(Value::map({ { field::TYPE, "MESSAGE" } })) },
        { "no target", test::frame(without(field::TARGET_WORKER_ID)) },
        { "a target too large", test::frame(with(field::TARGET_WORKER_ID, 65'536)) },
        { "a negative target", test::frame(with(field::TARGET_WORKER_ID, -1)) },
        { "no objects", test::frame(without(field::OBJECTS)) },
        { "objects that are no map", test::frame(with(field::OBJECTS, "all")) },
        { "an object key that is text", test::frame(objects("x")) },
        { "an object key that is negative", test::frame(objects(-5)) },
        { "a HELLO without a name", test::frame(Value::map({ { field::TYPE, type::HELLO } })) },
        { "a release without a count",
            test::frame(Value::map({ { field::TYPE, type::REFERENCE_RELEASE }, { field::OBJECT_ID, id() } })) },
        { "a release of nothing named",
            test::frame(Value::map({ { field::TYPE, type::REFERENCE_RELEASE }, { field::USAGE_COUNT, 1 } })) },
        { "a count beyond 32 bits", test::frame(release(id(), std::int64_t(1) << 40)) },
    };
    for (const auto& row : rows) {
        const bool isHello = std::string_view(row.what).starts_with("a HELLO");
        const auto bad = isHello ? stranger() : join();
        bad->sendRaw(row.bytes + test::frame(full()));
        ASSERT_TRUE(test::runUntil(loop, [&] { return bad->isEnded(); })) << row.what;
        settle();
        EXPECT_EQ(witness->count(type::MESSAGE), 0u) << row.what << ": nothing of it, or after it, was forwarded";
    }
    // Ignored or told, without closing anybody.
    const auto odd = join();
    odd->send("no map");
    odd->send(Value(Value::MAP));
    for (const int unexpected : { type::PING, type::INSTANCE_RELEASE, type::WORKER_DEAD, type::QUIT, 99, -3 }) {
        odd->send(Value::map({ { field::TYPE, unexpected } }));
    }
    odd->send(full());
    ASSERT_TRUE(test::runUntil(loop, [&] { return witness->count(type::MESSAGE) == 1; }));
    EXPECT_FALSE(odd->isEnded());
    EXPECT_FALSE(witness->isEnded());
}

TEST_F(DispatcherTest, WrongReleaseCountsAreReportedAndOnlyLiesCloseTheirSender)
{
    const auto owner = join();
    const auto holder = join();
    const auto x = objectOf(owner->id(), 1);
    const test::ExpectAssertions expected;
    owner->send(test::objectMessage(x, holder->id(), {}, { { x, "X" } }));
    ASSERT_TRUE(test::runUntil(loop, [&] { return holder->count(type::MESSAGE) == 1; }));
    holder->send(release(objectOf(owner->id(), 99), 1));
    owner->send(release(x, 1));
    settle();
    EXPECT_EQ(expected.reports().size(), 2u);
    EXPECT_FALSE(holder->isEnded());
    EXPECT_FALSE(owner->isEnded());
    holder->send(release(x, 2));
    ASSERT_TRUE(test::runUntil(loop, [&] { return holder->isEnded(); }));
    ASSERT_TRUE(test::runUntil(loop, [&] { return owner->count(type::INSTANCE_RELEASE) == 1; }))
        << "its death frees what it held";
    EXPECT_EQ(expected.reports().size(), 3u);
}

TEST_F(DispatcherTest, AReceiverThatTakesNothingIsReportedAndClosedAndTheMemoryReturns)
{
    const auto sender = join();
    const auto stalled = join();
    const auto witness = join();
    stalled->stream()->readStop();
    const auto x = objectOf(sender->id(), 1);
    const fn::ByteArray large(8u << 20);
    for (int i = 0; i < 12; ++i) sender->send(test::objectMessage(x, stalled->id(), Value(large)));
    ASSERT_TRUE(test::runUntil(loop, [&] { return sender->stream()->queuedBytes() == 0; }));
    settle();
    // A hub that was itself starved finds the time over while there is room again.
    loop.post([&] {
        stalled->stream()->readResume();
        stalled->stream()->readPending();
        stalled->stream()->readStop();
        clock.advance(timeout);
    });
    settle();
    EXPECT_TRUE(gone.empty());
    clock.advance(timeout);
    ASSERT_TRUE(test::runUntil(loop, [&] { return !gone.empty(); }));
    EXPECT_EQ(gone, std::vector { stalled->id() });
    EXPECT_EQ(std::ranges::count(silent, stalled->id()), 1);
    sender->send(test::objectMessage(x, witness->id(), "still here"));
    EXPECT_TRUE(test::runUntil(loop, [&] { return witness->count(type::MESSAGE) == 1; }));
}

TEST_F(DispatcherTest, AFloodIsHeldBackUntilASlowReceiverHasTakenHalf)
{
    const auto sender = join();
    const auto slow = join();
    slow->stream()->readStop();
    const auto x = objectOf(sender->id(), 1);
    constexpr std::size_t messages = 60; // Of 8 MiB: 480 MiB, far above what may wait.
    const fn::ByteArray large(8u << 20);
    for (std::size_t i = 0; i < messages; ++i) sender->send(test::objectMessage(x, slow->id(), Value(large)));
    ASSERT_TRUE(test::runUntil(loop, [&] { return sender->stream()->queuedBytes() < 230u << 20; }));
    settle();
    const auto heldBack = sender->stream()->queuedBytes();
    EXPECT_GT(heldBack, 150u << 20) << "the hub reads on without bound";
    sender->send(Value::map({ { field::TYPE, type::PONG } }));
    clock.advance(fn::Duration::seconds(20));
    settle();
    EXPECT_TRUE(silent.empty()) << "who is not read cannot be accused of silence";
    std::size_t taken = 0;
    slow->stream()->readResume();
    ASSERT_TRUE(test::runUntil(loop, [&] {
        taken += slow->count(type::MESSAGE);
        slow->clear();
        return taken == messages;
    }));
    EXPECT_TRUE(gone.empty());
}

TEST_F(DispatcherTest, ServesFiveHundredConnectionsAtOnce)
{
    std::vector<std::unique_ptr<test::Peer>> peers;
    for (int i = 0; i < 500; ++i) {
        peers.push_back(std::make_unique<test::Peer>(loop, dispatcher.pipePath()));
        peers.back()->hello();
    }
    ASSERT_TRUE(test::runUntil(loop, [&] {
        clock.advance(fn::Duration::milliseconds(1)); // Who finds the queue full tries again later.
        return std::ranges::all_of(peers, [](const auto& peer) { return peer->id() != ipc::NO_WORKER_ID; });
    }));
    peers.clear();
    ASSERT_TRUE(test::runUntil(loop, [&] { return gone.size() == 500; }));
    EXPECT_EQ(join()->id(), 501);
}

TEST_F(DispatcherTest, SaysNowAndThenThatFilesRunOut)
{
    const test::LogCapture log(2);
    const auto warnings = [&] {
        return std::ranges::count_if(
            log.lines(), [](const std::string& line) { return line.find("Raise the limit") != std::string::npos; });
    };
    const auto first = join();
    EXPECT_EQ(warnings(), 0);
    const OpenFilesLimit few(usedFiles() + 12);
    const auto second = join();
    const auto third = join();
    EXPECT_EQ(warnings(), 1);
    clock.advance(fn::Duration::seconds(60));
    const auto fourth = join();
    EXPECT_EQ(warnings(), 2);
}

TEST_F(DispatcherTest, RefusesWhoComesWithoutFilesAndGoesOn)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizers open files themselves to look at objects";
#endif
    const auto sender = join();
    const auto witness = join();
    std::vector<std::unique_ptr<test::Peer>> peers;
    {
        // Each has a socket of its own, and little is left to the hub.
        const OpenFilesLimit few(usedFiles() + 10);
        for (int i = 0; i < 8; ++i) {
            peers.push_back(std::make_unique<test::Peer>(loop, dispatcher.pipePath()));
            peers.back()->hello();
        }
        ASSERT_TRUE(test::runUntil(
            loop, [&] { return std::ranges::any_of(peers, [](const auto& peer) { return peer->isEnded(); }); }));
        sender->send(test::objectMessage(sender->id(), witness->id(), "goes on"));
        EXPECT_TRUE(test::runUntil(loop, [&] { return witness->count(type::MESSAGE) == 1; }));
    }
    EXPECT_NE(join()->id(), ipc::NO_WORKER_ID);
}

TEST_F(DispatcherTest, StopTellsEverybodyAlsoWithoutADelayAndEndsTheCallsOfItsOwnWorker)
{
    const auto named = join();
    const auto unnamed = stranger();
    std::vector<std::string> told;
    loop.post([&] {
        dispatcher.worker()
            .registry()
            ->callMethod("never answered", {})
            .then([](Value&&) {},
                [&](std::exception_ptr) {
                    told.emplace_back("call rejected");
                    loop.post([&] { told.emplace_back("task"); });
                });
        dispatcher.stop(fn::Duration(), [&] { told.emplace_back("callback"); });
    });
    loop.run();
    EXPECT_EQ(told, (std::vector<std::string> { "call rejected", "task", "callback" }));
    EXPECT_TRUE(test::runUntil(loop, [&] { return named->count(type::QUIT) == 1 && unnamed->count(type::QUIT) == 1; }));
    const auto late = stranger();
    late->hello();
    EXPECT_TRUE(test::runUntil(loop, [&] { return late->count(type::QUIT) == 1; }));
}
