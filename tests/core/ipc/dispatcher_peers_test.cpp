// The hub and peers that are silent, slow, hostile or very many. What can break here: a ping that fires twice, memory that
// grows without end, one bad peer that disturbs the others.
#include "core/ipc/dispatcher/open_files.h"
#include "core/ipc/registry.h"
#include "dispatcher_fixture.h"
#include "support/expectations.h"
#include "support/log_capture.h"
#include <algorithm>
#include <sys/resource.h>

using namespace test;

namespace {

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

} // namespace

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
