// What can break here: bytes lost, doubled or out of order; a completion missing or called twice; a callback that runs
// after its stream has been closed; memory that libuv still needs.
#include "pipe_pair.h"
#include <array>
#include <gmock/gmock.h>
#include <malloc.h>
#include <numeric>

namespace {

using fn::ByteArray;
using fn::uv::Loop;
using fn::uv::PipeStream;
using fn::uv::Status;
using test::Inbox;
using test::PipeAndSocket;
using test::PipePair;
using test::runTurns;
using test::runUntil;
using testing::Each;
using testing::ElementsAre;

// More than any socket buffer holds.
constexpr std::size_t muchBytes = 8 * 1024 * 1024;

std::string pattern(std::size_t size)
{
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 2654435761U >> 13);
    return text;
}

TEST(PipeStream, SmallWritesOfOneTurnArriveInOrderAndCompleteEachOnce)
{
    Loop loop;
    PipePair pair(loop);
    Inbox inbox;
    inbox.readFrom(*pair.b);
    std::string sent;
    std::vector<int> completed;
    for (int i = 0; i < 3000; ++i) { // More than one system call takes.
        const auto text = fmt::format("{},", i);
        sent += text;
        pair.a->write(ByteArray(text), [&completed, i](const Status& status) {
            EXPECT_TRUE(status.ok());
            completed.push_back(i);
        });
    }
    const std::array<ByteArray, 3> parts { ByteArray("a"), ByteArray(), ByteArray("bc") };
    pair.a->write(parts, [&](const Status& status) { completed.push_back(status.code()); });
    pair.a->write(ByteArray(), [&](const Status& status) { completed.push_back(status.code()); });
    EXPECT_TRUE(completed.empty());
    EXPECT_EQ(pair.a->queuedBytes() + pair.a->sentBytes(), sent.size() + 3);
    EXPECT_TRUE(runUntil(loop, [&] { return inbox.text.size() == sent.size() + 3 && completed.size() == 3002; }));
    EXPECT_EQ(inbox.text, sent + "abc");
    std::vector<int> expected(3000);
    std::iota(expected.begin(), expected.end(), 0);
    expected.insert(expected.end(), { 0, 0 });
    EXPECT_EQ(completed, expected);
    EXPECT_EQ(pair.a->queuedBytes(), 0U);
    EXPECT_EQ(pair.a->sentBytes(), sent.size() + 3);
}

TEST(PipeStream, WritesThatAreJoinedKeepTheirOrderAroundThoseThatAreNotAlsoBehindAFullKernel)
{
    Loop loop;
    PipeAndSocket pair(loop);
    std::string sent;
    const auto write = [&](std::string text, PipeStream::Completion completion = {}) {
        sent += text;
        pair.pipe->write(ByteArray(text), std::move(completion));
    };
    int completed = 0;
    for (int turn = 0; turn < 20; ++turn) {
        for (int i = 0; i < 500; ++i) write(fmt::format("{}:{},", turn, i));
        write(pattern(100'000));
        write("!", [&](const Status&) { ++completed; });
        for (int i = 0; i < 500; ++i) write(fmt::format("{}+{},", turn, i));
        runTurns(loop); // The kernel has its fill by and by, and joined writes grow while a part of them is on its way.
    }
    EXPECT_GT(pair.pipe->queuedBytes(), 0U);
    EXPECT_TRUE(runUntil(loop, [&] {
        pair.take();
        return pair.received.size() == sent.size() && completed == 20;
    }));
    EXPECT_TRUE(pair.received == sent);
    EXPECT_EQ(pair.pipe->sentBytes(), sent.size());
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // They have a heap of their own.
TEST(PipeStream, WhatWaitsForASlowReceiverTakesLittleMoreMemoryThanItsBytes)
{
    Loop loop;
    PipeAndSocket pair(loop);
    pair.pipe->write(ByteArray(static_cast<unsigned>(muchBytes)));
    runTurns(loop);
    const auto used = [] { return ::mallinfo2().uordblks + ::mallinfo2().hblkhd; };
    const auto usedBefore = used();
    const auto queuedBefore = pair.pipe->queuedBytes();
    for (int i = 0; i < 1000; ++i) {
        pair.pipe->write(ByteArray(pattern(2'100)));
        for (int j = 0; j < 3; ++j) pair.pipe->write(ByteArray("small"));
    }
    const auto queued = pair.pipe->queuedBytes() - queuedBefore;
    EXPECT_GE(used() - usedBefore, queued);
    EXPECT_LT(used() - usedBefore, queued * 7 / 4);
}
#endif

TEST(PipeStream, ReadsOnceIntoMemoryOfTheUsersAndNoMoreThanFits)
{
    Loop loop;
    PipeAndSocket pair(loop);
    std::array<std::uint8_t, 4> memory {};
    std::string inMemory, elsewhere;
    pair.pipe->readStart([&](std::ptrdiff_t count, const std::uint8_t* data) {
        auto& text = data == memory.data() ? inMemory : elsewhere;
        if (count > 0) text.append(reinterpret_cast<const char*>(data), static_cast<std::size_t>(count));
    });
    pair.pipe->readInto(memory);
    pair.pipe->readPending(); // Nothing is there: the wish stays.
    ::send(pair.socket, "abcdef", 6, 0);
    EXPECT_TRUE(runUntil(loop, [&] { return elsewhere == "ef"; }));
    EXPECT_EQ(inMemory, "abcd");
    pair.pipe->readInto(memory);
    pair.pipe->readInto({});
    ::send(pair.socket, "gh", 2, 0);
    EXPECT_TRUE(runUntil(loop, [&] { return elsewhere == "efgh"; }));
    pair.pipe->readInto(memory);
    ::send(pair.socket, "ij", 2, 0);
    pair.pipe->readPending();
    EXPECT_EQ(inMemory, "abcdij");
}

TEST(PipeStream, WhatTheKernelDoesNotTakeAtOnceFollowsWholeAndIsCountedAllTheWhile)
{
    Loop loop;
    PipeAndSocket pair(loop);
    const auto text = pattern(muchBytes);
    std::vector<int> completed;
    bool drained = false;
    for (std::size_t i = 0; i < 8; ++i) {
        pair.pipe->write(ByteArray(text.substr(i * muchBytes / 8, muchBytes / 8)),
            [&completed, i](const Status&) { completed.push_back(static_cast<int>(i)); });
    }
    pair.pipe->whenQueuedAtMost(muchBytes / 2, [&] {
        EXPECT_LE(pair.pipe->queuedBytes(), muchBytes / 2);
        EXPECT_GT(pair.pipe->queuedBytes(), 0U);
        drained = true;
    });
    runTurns(loop);
    const auto stuck = pair.pipe->queuedBytes();
    EXPECT_GT(stuck, muchBytes / 2);
    EXPECT_LT(stuck, muchBytes);
    EXPECT_FALSE(drained);
    EXPECT_TRUE(completed.empty());
    while (pair.received.size() < muchBytes) {
        const auto before = pair.received.size();
        pair.take();
        // What has left is in our hands already or still in the kernel's.
        EXPECT_GE(pair.pipe->sentBytes(), pair.received.size());
        EXPECT_EQ(pair.pipe->sentBytes() + pair.pipe->queuedBytes(), muchBytes);
        ASSERT_TRUE(pair.received.size() > before || before == 0);
        runTurns(loop, 3);
    }
    runTurns(loop);
    EXPECT_EQ(pair.received, text);
    EXPECT_TRUE(drained);
    EXPECT_THAT(completed, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
    EXPECT_EQ(pair.pipe->queuedBytes(), 0U);
}

TEST(PipeStream, CloseSendsWhatTheKernelTakesAndCancelsTheRestInOrder)
{
    Loop loop;
    PipeAndSocket pair(loop);
    std::vector<std::pair<int, int>> completed;
    bool closed = false;
    const auto write = [&](int number, std::string text) {
        pair.pipe->write(ByteArray(text),
            [&completed, number](const Status& status) { completed.emplace_back(number, status.code()); });
    };
    write(0, "goodbye");
    write(1, pattern(muchBytes));
    write(2, "never");
    pair.pipe->close([&] {
        EXPECT_EQ(completed.size(), 4U);
        closed = true;
    });
    EXPECT_TRUE(completed.empty()); // Not inside of the call.
    write(3, "too late");
    const auto sent = pair.pipe->sentBytes();
    pair.pipe->close([] { FAIL() << "closed twice"; });
    EXPECT_TRUE(runUntil(loop, [&] { return closed; }));
    write(4, "much too late");
    EXPECT_TRUE(runUntil(loop, [&] { return completed.size() == 5; }));
    using Pair = std::pair<int, int>;
    EXPECT_THAT(completed,
        ElementsAre(Pair(0, 0), Pair(1, -ECANCELED), Pair(2, -ECANCELED), Pair(3, -ECANCELED), Pair(4, -ECANCELED)));
    pair.take();
    EXPECT_EQ(pair.received.size(), sent);
    EXPECT_TRUE(pair.received.starts_with("goodbye"));
}

TEST(PipeStream, AGentleCloseSendsEverythingAndLooksLikeAnEndToThePeer)
{
    Loop loop;
    PipePair pair(loop), silent(loop);
    const auto text = pattern(muchBytes);
    bool closed = false, gaveUp = false;
    pair.a->write(ByteArray(text));
    pair.b->write(ByteArray("not read by anybody"));
    pair.a->closeGently(fn::Duration::seconds(20), [&] { closed = true; });
    silent.a->closeGently(fn::Duration::milliseconds(1), [&] { gaveUp = true; });
    Inbox inbox;
    inbox.readFrom(*pair.b);
    EXPECT_TRUE(runUntil(loop, [&] { return inbox.end != 0 && gaveUp; }));
    EXPECT_EQ(inbox.end, -4095);
    EXPECT_TRUE(inbox.text == text);
    EXPECT_FALSE(closed);
    pair.b->close();
    EXPECT_TRUE(runUntil(loop, [&] { return closed; }));
}

TEST(PipeStream, WhatHasLeftIsCountedRightAlsoWhenAStreamIsClosedHalfWay)
{
    Loop loop;
    PipeAndSocket pair(loop);
    std::vector<int> completed;
    for (int i = 0; i < 64; ++i) {
        pair.pipe->write(
            ByteArray(pattern(64 * 1024)), [&](const Status& status) { completed.push_back(status.code()); });
    }
    runTurns(loop);
    pair.take();
    runTurns(loop); // The kernel takes a part of what libuv was given.
    pair.pipe->close();
    runTurns(loop);
    const auto sent = pair.pipe->sentBytes();
    pair.take();
    EXPECT_EQ(pair.received.size(), sent);
    ASSERT_EQ(completed.size(), 64U);
    for (std::size_t i = 0; i < completed.size(); ++i) {
        EXPECT_EQ(completed[i], (i + 1) * 64 * 1024 <= sent ? 0 : -ECANCELED) << i;
    }
}

TEST(PipeStream, ALoneWriteBeforeTheEndOfItsOwnerStillLeaves)
{
    Loop loop;
    PipeAndSocket pair(loop);
    bool completed = false;
    pair.pipe->write(ByteArray("farewell"), [&](const Status& status) { completed = status.ok(); });
    pair.pipe.reset();
    pair.take();
    EXPECT_EQ(pair.received, "farewell");
    EXPECT_TRUE(runUntil(loop, [&] { return completed; }));
}

TEST(PipeStream, APeerThatDiesEndsReadingOnceAndFailsEveryWrite)
{
    Loop loop;
    PipeAndSocket pair(loop);
    Inbox inbox;
    inbox.readFrom(*pair.pipe);
    std::vector<int> completed;
    const auto write = [&](std::size_t size) {
        pair.pipe->write(ByteArray(pattern(size)), [&](const Status& status) { completed.push_back(status.code()); });
    };
    write(muchBytes);
    write(1);
    runTurns(loop);
    EXPECT_TRUE(completed.empty());
    pair.hangUp(); // With unread bytes of ours in its queue.
    EXPECT_TRUE(runUntil(loop, [&] { return inbox.end != 0 && completed.size() == 2; }));
    write(1);
    EXPECT_TRUE(runUntil(loop, [&] { return completed.size() == 3; }));
    EXPECT_THAT(completed, Each(testing::AnyOf(-EPIPE, -ECONNRESET)));
    runTurns(loop);
    EXPECT_EQ(inbox.calls, 1);
    EXPECT_FALSE(pair.pipe->isReading());
}

TEST(PipeStream, NothingIsDeliveredAfterCloseNorAfterTheLastReferenceHasGoneInTheCallback)
{
    for (const bool release : { false, true }) {
        Loop loop;
        PipeAndSocket pair(loop);
        int calls = 0;
        auto token = std::make_shared<int>();
        const std::weak_ptr<int> callbackLives = token;
        pair.pipe->readStart([&, token](std::ptrdiff_t, const std::uint8_t*) {
            ++calls;
            if (release)
                pair.pipe.reset();
            else
                pair.pipe->close();
            EXPECT_EQ(token.use_count(), 1); // The running callback is whole.
        });
        token.reset();
        ASSERT_EQ(::send(pair.socket, "first", 5, 0), 5);
        runTurns(loop);
        pair.hangUp();
        runTurns(loop);
        EXPECT_EQ(calls, 1);
        EXPECT_TRUE(callbackLives.expired());
    }
}

TEST(PipeStream, AStoppedStreamLosesNothingAndACallbackMayReplaceItself)
{
    Loop loop;
    PipeAndSocket pair(loop);
    Inbox inbox;
    std::string first;
    pair.pipe->readStart([&](std::ptrdiff_t count, const std::uint8_t* data) {
        first.assign(reinterpret_cast<const char*>(data), static_cast<std::size_t>(count));
        inbox.readFrom(*pair.pipe);
    });
    ::send(pair.socket, "one", 3, 0);
    runTurns(loop);
    EXPECT_EQ(first, "one");
    pair.pipe->readStop();
    EXPECT_FALSE(pair.pipe->isReading());
    ::send(pair.socket, "two", 3, 0);
    runTurns(loop);
    pair.pipe->readPending(); // Stopped is stopped.
    EXPECT_EQ(inbox.text, "");
    pair.pipe->readResume();
    EXPECT_TRUE(runUntil(loop, [&] { return inbox.text == "two"; }));
}

TEST(PipeStream, ReadPendingDeliversAtOnceWhatHasArrivedAndTheEndBehindIt)
{
    Loop loop;
    PipeAndSocket pair(loop);
    Inbox inbox;
    inbox.readFrom(*pair.pipe);
    pair.pipe->readPending();
    EXPECT_EQ(inbox.calls, 0);
    ::send(pair.socket, "pong", 4, 0);
    pair.pipe->readPending();
    EXPECT_EQ(inbox.text, "pong");
    ::send(pair.socket, "last", 4, 0);
    pair.hangUp();
    pair.pipe->readPending();
    EXPECT_EQ(inbox.text, "ponglast");
    EXPECT_EQ(inbox.end, -4095);
    runTurns(loop);
    EXPECT_EQ(inbox.calls, 3);

    PipeAndSocket other(loop);
    inbox.readFrom(*other.pipe);
    ::send(other.socket, "!", 1, 0);
    other.pipe->readEnd();
    EXPECT_EQ(inbox.text, "ponglast!");
    EXPECT_EQ(inbox.calls, 5);
    EXPECT_EQ(::send(other.socket, "?", 1, MSG_NOSIGNAL), -1) << "It believes that it is heard.";
}

TEST(PipeStream, ACallbackThatRunsTheLoopAgainKeepsItsBytesAndTheirOrder)
{
    Loop loop;
    PipeAndSocket pair(loop);
    PipePair other(loop);
    Inbox otherInbox;
    otherInbox.readFrom(*other.b);
    std::vector<std::string> received;
    pair.pipe->readStart([&](std::ptrdiff_t count, const std::uint8_t* data) {
        if (count < 0) return;
        const auto text = [&] {
            return std::string(reinterpret_cast<const char*>(data), static_cast<std::size_t>(count));
        };
        const auto before = text();
        if (received.empty()) {
            ::send(pair.socket, "second", 6, 0);
            other.a->write(ByteArray("elsewhere"));
            EXPECT_TRUE(runUntil(loop, [&] { return otherInbox.text == "elsewhere"; }));
            runTurns(loop);
        }
        EXPECT_EQ(text(), before); // The other read has not used this one's buffer.
        received.push_back(before);
    });
    ::send(pair.socket, "first", 5, 0);
    EXPECT_TRUE(runUntil(loop, [&] { return received.size() == 2; }));
    EXPECT_THAT(received, ElementsAre("first", "second"));
}

TEST(PipeStream, AStreamClosedInANestedRunOfItsOwnReadCallbackIsNotFreedUnderLibuv)
{
    Loop loop;
    PipeAndSocket pair(loop);
    bool returned = false;
    pair.pipe->readStart([&](std::ptrdiff_t, const std::uint8_t*) {
        pair.pipe.reset();
        runTurns(loop);
        returned = true;
    });
    ::send(pair.socket, "x", 1, 0);
    EXPECT_TRUE(runUntil(loop, [&] { return returned; }));
}

TEST(PipeStream, StreamsThatOutliveTheirLoopAreClosedAndHarmless)
{
    auto loop = std::make_unique<Loop>();
    auto token = std::make_shared<int>();
    PipeAndSocket pair(*loop);
    pair.pipe->readStart([token](std::ptrdiff_t, const std::uint8_t*) {});
    pair.pipe->write(ByteArray("bye"), [token](const Status&) { FAIL() << "nothing runs while the loop ends"; });
    pair.pipe->write(ByteArray(pattern(muchBytes)), [token](const Status&) { FAIL() << "nothing runs"; });
    loop.reset();
    EXPECT_EQ(token.use_count(), 1);
    EXPECT_TRUE(pair.pipe->isClosed());
    pair.pipe->write(ByteArray("late"), [token](const Status&) { FAIL() << "nobody is left to run this"; });
    pair.pipe->close();
    pair.take();
    EXPECT_TRUE(pair.received.starts_with("bye"));
}

} // namespace
