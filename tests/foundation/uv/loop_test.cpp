// What can break here: a task lost, doubled or out of order; a loop that sleeps while work waits, or never ends; I/O that
// tasks keep from its turn; an object freed late, or never, when the loop goes.
#include "foundation/uv/async.h"
#include "pipe_pair.h"
#include "support/expectations.h"
#include <atomic>
#include <gmock/gmock.h>
#include <thread>

namespace {

using fn::Duration;
using fn::RunLoop;
using fn::uv::Loop;
using test::runTurns;
using test::runUntil;
using testing::ElementsAre;

TEST(Loop, TasksOfOneThreadRunOnceAndInPostingOrderBeforeDuringAndAcrossRuns)
{
    Loop loop;
    std::vector<int> ran;
    const auto post = [&](int number) { loop.post([&ran, number] { ran.push_back(number); }); };
    post(0);
    loop.post([&] {
        post(2);
        loop.stop();
    });
    post(1);
    loop.run();
    post(3);
    loop.post([&] { loop.stop(); });
    loop.run();
    EXPECT_THAT(ran, ElementsAre(0, 1, 2, 3));
}

TEST(Loop, TasksPostedByManyThreadsKeepEachThreadsOrder)
{
    constexpr int threadCount = 4;
    constexpr int each = 5000;
    Loop loop;
    std::vector<int> next(threadCount, 0);
    int total = 0;
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < each; ++i) {
                loop.post([&, thread, i] {
                    EXPECT_EQ(next[static_cast<std::size_t>(thread)]++, i);
                    ++total;
                    loop.post([&] {
                        if (++total == 2 * threadCount * each) loop.stop();
                    });
                });
            }
        });
    }
    loop.run();
    EXPECT_EQ(total, 2 * threadCount * each);
}

TEST(Loop, ATaskThatAlwaysPostsItselfNeitherBlocksNorStarvesInputAndTimers)
{
    Loop loop;
    test::PipeAndSocket pair(loop);
    test::Inbox inbox;
    inbox.readFrom(*pair.pipe);
    struct Again {
        RunLoop& loop;
        int turns = 0;
        void operator()()
        {
            ++turns;
            loop.post([this] { (*this)(); });
        }
    } again { loop };
    again();
    bool fired = false;
    const auto timer = loop.schedule(Duration::milliseconds(1), [&] { fired = true; });
    ::send(pair.socket, "x", 1, 0);
    EXPECT_TRUE(runUntil(loop, [&] { return fired && inbox.text == "x" && again.turns > 10; }));
}

TEST(Loop, ATurnRunsTheTasksThatWerePresentAtItsStartAfterItsInput)
{
    Loop loop;
    test::PipeAndSocket pair(loop);
    std::string order;
    pair.pipe->readStart([&](std::ptrdiff_t, const std::uint8_t*) {
        order += "i";
        loop.post([&] { order += "p"; });
    });
    ::send(pair.socket, "x", 1, 0);
    loop.post([&] {
        order += "a";
        loop.post([&] { order += "c"; });
    });
    loop.post([&] { order += "b"; });
    runTurns(loop);
    EXPECT_EQ(order, "iabpc");
}

TEST(Loop, RunsUntilStoppedAndRemembersAStopThatCameBefore)
{
    Loop loop;
    bool ran = false;
    loop.stop();
    loop.stop(); // Twice is once.
    loop.post([&] { ran = true; });
    loop.run();
    EXPECT_FALSE(ran);
    std::jthread other([&] { loop.post([&] { std::jthread([&] { loop.stop(); }); }); });
    loop.run();
    EXPECT_TRUE(ran);
    EXPECT_EQ(RunLoop::currentLoop(), nullptr);
}

TEST(Loop, AnExceptionOfATaskIsReportedAndTheNextTaskRuns)
{
    Loop loop;
    const test::ExpectUnhandled expected;
    loop.post([] { throw std::runtime_error("broken"); });
    loop.post([&] { loop.stop(); });
    loop.run();
    EXPECT_THAT(expected.messages(), ElementsAre("broken"));
}

TEST(Loop, AnInnerRunGoesOnWithWhatWaitsAndItsStopLeavesTheOuterRunning)
{
    Loop loop;
    Loop other;
    std::string order;
    loop.post([&] {
        order += "(";
        loop.run();
        order += ")";
        EXPECT_EQ(RunLoop::currentLoop(), &loop);
        other.post([&] {
            EXPECT_EQ(RunLoop::currentLoop(), &other);
            loop.post([&] { order += "f"; });
            other.stop();
        });
        other.run();
        loop.post([&] { order += "g"; });
        loop.post([&] { loop.stop(); });
    });
    loop.post([&] { order += "b"; });
    loop.post([&] {
        order += "c";
        loop.post([&] { order += "e"; });
        loop.stop();
    });
    loop.post([&] { order += "d"; });
    loop.run();
    EXPECT_EQ(order, "(bcd)efg");
}

TEST(Loop, ItsEndFreesTasksInRoundsAndRunsDeletionsButNothingElse)
{
    const test::ExpectAssertions assertions;
    auto loop = std::make_unique<Loop>();
    std::string freed;
    struct Poster {
        Loop& loop;
        std::string& freed;
        int depth;
        ~Poster()
        {
            freed += std::to_string(depth);
            if (depth == 0) return;
            auto next = std::make_unique<Poster>(loop, freed, depth - 1);
            loop.post([next = std::move(next)] { FAIL() << "the loop has ended"; });
            loop.postDeletion([this] { freed += "d"; }); // At once.
        }
    };
    auto poster = std::make_unique<Poster>(*loop, freed, 3);
    loop->postDeletion([poster = poster.release()] { delete poster; });
    auto timer = loop->schedule(Duration::seconds(1), [held = std::make_unique<Poster>(*loop, freed, 1)] {});
    auto* const ending = loop.get();
    auto timerOfTimer =
        loop->schedule(Duration::seconds(1), [&, held = std::shared_ptr<void>(nullptr, [&, ending](void*) {
            ending->schedule(Duration::seconds(1), [] { FAIL() << "the loop has ended"; }).detach();
            ending->run();
            freed += "t";
        })] {});
    loop.reset();
    EXPECT_EQ(freed, "3d2d1d01dt0");
    EXPECT_FALSE(timer);
    EXPECT_FALSE(timerOfTimer);
    EXPECT_THAT(
        assertions.reports(), ElementsAre("libs/foundation/uv/loop:3 run a loop that is being destroyed does not run"));
}

TEST(Loop, AThreadMayEndTheLoopWithItsLastPostOrStop)
{
    for (int round = 0; round < 200; ++round) {
        auto loop = std::make_unique<Loop>();
        std::thread poster([loop = loop.get(), round] {
            if (round % 2 == 0)
                loop->stop();
            else
                loop->post([loop] { loop->stop(); });
        });
        loop->run();
        loop.reset();
        poster.join();
    }
}

TEST(Async, RunsOnceForAnyNumberOfSendsAndNotAfterItsEnd)
{
    Loop loop;
    int calls = 0;
    std::optional<fn::uv::Async> async;
    async.emplace(loop, [&] {
        if (++calls == 2) async.reset();
        loop.stop();
    });
    const auto sendTwice = [&] {
        std::jthread([&] { async->send(); });
        async->send();
    };
    sendTwice();
    loop.run();
    EXPECT_EQ(calls, 1);
    sendTwice();
    loop.run();
    runTurns(loop);
    EXPECT_EQ(calls, 2);
    EXPECT_FALSE(async);
}

TEST(Async, RunsAgainInARunInsideOfItsCallbackAndLivesUntilThatReturns)
{
    Loop loop;
    const auto token = std::make_shared<int>();
    int calls = 0;
    std::optional<fn::uv::Async> async;
    async.emplace(loop, [&, token] {
        if (++calls == 2) {
            async.reset();
        } else {
            async->send();
            EXPECT_TRUE(test::runUntil(loop, [&] { return calls == 2; }));
        }
        EXPECT_EQ(token.use_count(), 2);
        loop.stop();
    });
    async->send();
    loop.run();
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(token.use_count(), 1);
}

TEST(Async, ShowsWhatWasWrittenBeforeASendThatFindsAnotherOneOnItsWay)
{
    // ThreadSanitizer is who sees it: the flag orders nothing.
    Loop loop;
    int written = 0;
    std::atomic<bool> isSent = false;
    fn::uv::Async async(loop, [&] {
        const int seen = written; // Here: gtest's own code is not watched.
        EXPECT_EQ(seen, 1);
        loop.stop();
    });
    async.send();
    const std::jthread other([&] {
        written = 1;
        async.send();
        isSent.store(true, std::memory_order_relaxed);
    });
    while (!isSent.load(std::memory_order_relaxed)) std::this_thread::yield();
    loop.run();
}

} // namespace
