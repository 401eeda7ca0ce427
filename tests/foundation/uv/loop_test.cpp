// What can break here: a task or timer lost, doubled or out of order; a loop that sleeps while work waits; what it owns freed late.
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "pipe_pair.h"
#include "support/run_until.h"
#include <gtest/gtest.h>
#include <map>
#include <thread>

namespace {

using fn::Duration;
using fn::Handle;
using fn::uv::Loop;
using test::runUntil;

TEST(Loop, ATaskOrTimerThatAlwaysComesBackNeitherBlocksNorStarvesInputAndTimers)
{
    for (const bool isTimer : { false, true }) {
        Loop loop;
        test::PipeAndSocket pair(loop);
        test::Inbox inbox;
        inbox.readFrom(*pair.pipe);
        int turns = 0;
        std::function<void()> again = [&] {
            ++turns;
            if (isTimer)
                loop.schedule(Duration(), [&] { again(); }).detach();
            else
                loop.post([&] { again(); });
        };
        again();
        bool fired = false;
        const auto timer = loop.schedule(Duration::milliseconds(1), [&] { fired = true; });
        pair.send("x");
        EXPECT_TRUE(runUntil(loop, [&] { return fired && inbox.text == "x" && turns > 10; })) << isTimer;
    }
}

TEST(Loop, ItsEndFreesTasksInRoundsAndRunsDeletionsButNothingElse)
{
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
    loop.reset();
    EXPECT_EQ(freed, "3d2d1d01d0");
    EXPECT_FALSE(timer);
}

TEST(Loop, AThreadMayEndTheLoopWithItsLastPostOrStopAlsoBeforeItRuns)
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

TEST(Timers, FireInTheOrderOfTheirTimesUnlessTheyAreCancelledAlsoByOneThatFires)
{
    fn::ManualClock clock;
    Loop loop { clock };
    std::string fired;
    std::map<char, Handle> handles;
    const auto token = std::make_shared<int>();
    const auto add = [&](
                         char name, Duration delay, std::function<void()> then = [] {}) {
        handles[name] = loop.schedule(delay, [&fired, name, then, kept = token] {
            fired += name;
            then();
        });
    };
    const auto firedAfter = [&](std::int64_t microseconds) {
        clock.advance(Duration::microseconds(microseconds));
        test::runTurns(loop);
        return std::exchange(fired, {});
    };
    add('c', Duration::milliseconds(3));
    add('x', Duration::milliseconds(2), [&] { handles['x'].invalidate(); });
    add('y', Duration::milliseconds(2), [&] { handles['z'].invalidate(); });
    add('z', Duration::milliseconds(2));
    add('a', Duration::microseconds(1)); // Whole milliseconds, and none too early.
    add('e', Duration(INT64_MAX));
    add('n', Duration(INT64_MIN), [&] { add('m', Duration()); }); // What is scheduled for now by one that fires, too.
    EXPECT_EQ(firedAfter(0), "nm");
    EXPECT_EQ(firedAfter(999), "");
    EXPECT_EQ(firedAfter(1), "a");
    EXPECT_EQ(firedAfter(1'000), "xy");
    handles.erase('c');
    EXPECT_EQ(firedAfter(10'000'000), "");
    EXPECT_EQ(token.use_count(), 2) << "what is over is freed at once; one waits for ever";
}

TEST(Timers, AHandleThatEndsOnAnotherThreadEndsTheTimerOnTheLoop)
{
    fn::ManualClock clock;
    Loop loop { clock };
    bool hasFired = false;
    std::thread::id freedOn;
    auto handle = loop.schedule(Duration::seconds(1),
        [held = std::shared_ptr<void>(nullptr, [&](void*) { freedOn = std::this_thread::get_id(); })] { FAIL(); });
    auto detached = loop.schedule(Duration::seconds(1), [&] { hasFired = true; });
    loop.post([&] {
        std::jthread([&] {
            handle.invalidate();
            detached.detach();
        });
        EXPECT_FALSE(handle);
    });
    test::runTurns(loop);
    clock.advance(Duration::seconds(1));
    test::runTurns(loop);
    EXPECT_TRUE(hasFired);
    EXPECT_EQ(freedOn, std::this_thread::get_id());
}

} // namespace
