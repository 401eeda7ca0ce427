// The hub and peers that are silent, slow, hostile or very many. What can break here: a ping that fires twice, memory that
// grows without end, one bad peer that disturbs the others.
#include "core/ipc/dispatcher/detail/open_files.h"
#include "hub_fixture.h"
#include "support/expectations.h"
#include "support/log_capture.h"
#include <algorithm>
#include <sys/resource.h>
#include <tuple>

namespace {

using namespace test;
constexpr std::size_t kibibyte = 1024;

/// Its queues are small.
class HubPeersTest : public HubTest {
protected:
    HubPeersTest()
        : HubTest({ .stalledQueueBytes = 1024 * kibibyte,
            .pausingQueueBytes = 4096 * kibibyte,
            .queueBytes = 8192 * kibibyte })
    {
    }
};

} // namespace

TEST_F(HubPeersTest, ClosesWhoSaysNoHello)
{
    const auto mute = stranger();
    pass(fn::Duration::seconds(29));
    EXPECT_FALSE(mute->isEnded());
    pass(fn::Duration::seconds(1));
    EXPECT_TRUE(mute->isEnded());
}

TEST_F(HubPeersTest, ABadMessageEndsItsSenderAndNobodyElse)
{
    const auto witness = join();
    const auto id = objectOf(witness->id(), 1);
    const auto good = objectMessage(id, witness->id(), 1);
    const auto with = [&](int key, const Value& value) {
        auto message = good;
        message.set(key, value);
        return frame(message);
    };
    const auto without = [&](int key, Value message) {
        message.remove(key);
        return frame(message);
    };
    const std::pair<const char*, std::string> rows[] {
        { "no MessagePack", std::string("\x01\0\0\0\xc1", 5) },
        { "a type that is text", with(field::TYPE, "MESSAGE") },
        { "a target too large", with(field::TARGET_WORKER_ID, 65'536) },
        { "objects that are no map", with(field::OBJECTS, "all") },
        { "an object key that is negative", with(field::OBJECTS, Value::map({ { id, "fine" }, { -5, "bad" } })) },
        { "a HELLO without a name", with(field::TYPE, type::HELLO) },
        { "a release without a count", without(field::USAGE_COUNT, release(id, 1)) },
        { "a count beyond 32 bits", frame(release(id, std::int64_t(1) << 40)) },
    };
    for (const auto& [what, bytes] : rows) {
        const auto bad = stranger();
        bad->sendRaw(bytes + frame(good));
        settle();
        EXPECT_TRUE(bad->isEnded()) << what;
        EXPECT_EQ(witness->count(type::MESSAGE), 0u) << what << ": nothing of it, or after it, was forwarded";
    }
    // Ignored or told, without closing anybody.
    const auto odd = join();
    odd->hello("again");
    odd->send("no map");
    for (const int unexpected : { type::PING, type::QUIT, 99 }) odd->send(Value::map({ { field::TYPE, unexpected } }));
    odd->send(good);
    settle();
    EXPECT_EQ(witness->count(type::MESSAGE), 1u);
    EXPECT_FALSE(odd->isEnded() || witness->isEnded());
}

TEST_F(HubPeersTest, WrongReleaseCountsAreReportedAndOnlyLiesCloseTheirSender)
{
    const auto owner = join();
    const auto other = join();
    const auto x = objectOf(owner->id(), 1);
    const std::tuple<const char*, bool, ObjectId, std::int64_t, bool> rows[] {
        { "an object that nobody has", true, objectOf(owner->id(), 99), 1, false },
        { "an object of others", false, x, 1, false },
        { "the fewest", true, x, INT32_MIN, true },
    };
    for (const auto& [what, isHolder, id, count, isClosed] : rows) {
        const auto holder = join();
        for (int i = 0; i < 2; ++i) owner->send(objectMessage(x, holder->id(), {}, { { x, "X" } }));
        settle();
        owner->clear();
        const ExpectAssertions expected;
        (isHolder ? holder : other)->send(release(id, count));
        settle();
        EXPECT_EQ(expected.reports().size(), 1u) << what;
        EXPECT_EQ(holder->isEnded(), isClosed) << what;
        if (!isClosed) holder->close();
        settle();
        EXPECT_EQ(owner->messages().at(0).at(field::USAGE_COUNT), Value(2)) << what << ": its death frees what it held";
    }
    EXPECT_FALSE(other->isEnded() || owner->isEnded());
}

TEST_F(HubPeersTest, AReceiverThatTakesNothingIsReportedAndClosedAndTheMemoryReturns)
{
    const auto sender = join();
    const auto stalled = join();
    const auto witness = join();
    stalled->stream()->readStop();
    const auto x = objectOf(sender->id(), 1);
    const fn::ByteArray large(unsigned(128 * kibibyte));
    for (int i = 0; i < 28; ++i) sender->send(objectMessage(x, stalled->id(), Value(large)));
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
    pass(timeout);
    EXPECT_EQ(gone, std::vector { stalled->id() });
    EXPECT_EQ(std::ranges::count(silent, stalled->id()), 1);
    const auto flooded = join();
    flooded->stream()->readStop();
    sender->send(objectMessage(x, flooded->id(), Value(fn::ByteArray(unsigned(9216 * kibibyte)))));
    settle();
    EXPECT_EQ(gone.back(), flooded->id()) << "at once, where it is far too much";
    EXPECT_EQ(silent.back(), flooded->id()) << "also before its first PING";
    sender->send(objectMessage(x, witness->id(), "still here"));
    settle();
    EXPECT_EQ(witness->count(type::MESSAGE), 1u);
}

TEST_F(HubPeersTest, AFloodIsHeldBackUntilASlowReceiverHasTakenHalf)
{
    constexpr std::size_t messages = 64; // 8 MiB, far above what may wait.
    const fn::ByteArray large(unsigned(128 * kibibyte));
    for (const bool listsObjects : { false, true }) { // Which the hub handles in another way.
        const auto sender = join();
        const auto slow = join();
        slow->stream()->readStop();
        const auto x = objectOf(sender->id(), 1);
        auto message = objectMessage(x, slow->id(), Value(large));
        if (listsObjects) message.set(field::OBJECTS, Value::map({ { x, "X" } }));
        for (std::size_t i = 0; i < messages; ++i) sender->send(message);
        settle();
        const auto heldBack = sender->stream()->queuedBytes();
        EXPECT_LT(heldBack, 4096 * kibibyte) << "the hub reads too little";
        EXPECT_GT(heldBack, 2048 * kibibyte) << "the hub reads on without bound";
        pass(fn::Duration::seconds(20));
        slow->stream()->readResume();
        settle();
        EXPECT_EQ(slow->count(type::MESSAGE), messages);
        EXPECT_EQ(std::ranges::count(silent, sender->id()), 0) << "who is not read cannot be accused of silence";
        pass(timeout);
        EXPECT_EQ(std::ranges::count(silent, sender->id()), 1) << "it is read again";
    }
}

TEST_F(HubPeersTest, SaysThatFilesRunOutRefusesWhoComesWithoutAndGoesOn)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizers open files themselves to look at objects";
#endif
    const LogCapture log(2);
    const auto sender = join();
    const auto witness = join();
    rlimit before;
    ::getrlimit(RLIMIT_NOFILE, &before);
    const auto [most, left] = ipc::openFiles();
    const rlimit few { most - left + 10, before.rlim_max };
    ::setrlimit(RLIMIT_NOFILE, &few);
    std::vector<std::unique_ptr<Peer>> peers; // Each has a socket of its own, and little is left to the hub.
    for (int i = 0; i < 8; ++i) peers.push_back(std::make_unique<Peer>(loop, dispatcher->pipePath()));
    EXPECT_TRUE(runUntil(loop, [&] { return std::ranges::any_of(peers, &Peer::isEnded); }));
    sender->send(objectMessage(sender->id(), witness->id(), "goes on"));
    EXPECT_TRUE(runUntil(loop, [&] { return witness->count(type::MESSAGE) == 1; }));
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(std::ranges::count_if(log.lines(), [](const auto& line) { return line.contains("Raise the limit"); }), 1);
    EXPECT_NE(join()->id(), ipc::NO_WORKER_ID);
}
