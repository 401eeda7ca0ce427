// What can break here: a timer early, late, out of order, lost, or fired after it was cancelled; a callable kept alive by
// a timer that is over; time of a test's clock that passes unnoticed.
#include "foundation/time/clock.h"
#include "pipe_pair.h"
#include <gmock/gmock.h>
#include <random>
#include <thread>

namespace {

using fn::Duration;
using fn::Handle;
using fn::uv::Loop;
using test::runTurns;
using testing::ElementsAre;

struct Timers : testing::Test {
    fn::ManualClock clock;
    Loop loop { clock };
    std::vector<int> fired;

    Handle schedule(Duration delay, int number)
    {
        return loop.schedule(delay, [this, number] { fired.push_back(number); });
    }

    void pass(Duration time)
    {
        clock.advance(time);
        runTurns(loop);
    }
};

TEST_F(Timers, FireAtTheirTimeRoundedUpToMillisecondsAndInSchedulingOrderWhereEqual)
{
    const Handle handles[] = { schedule(Duration::microseconds(2001), 0), schedule(Duration::milliseconds(2), 1),
        schedule(Duration::milliseconds(3), 2), schedule(Duration(), 3), schedule(Duration::seconds(-5), 4),
        schedule(Duration(INT64_MIN), 5), schedule(Duration(INT64_MAX), 6), schedule(Duration::microseconds(1), 7) };
    runTurns(loop);
    EXPECT_THAT(fired, ElementsAre(3, 4, 5));
    pass(Duration::microseconds(999));
    EXPECT_EQ(fired.size(), 3U);
    pass(Duration::microseconds(1));
    EXPECT_THAT(fired, ElementsAre(3, 4, 5, 7));
    pass(Duration::microseconds(1999));
    EXPECT_THAT(fired, ElementsAre(3, 4, 5, 7, 1));
    pass(Duration::microseconds(1));
    EXPECT_THAT(fired, ElementsAre(3, 4, 5, 7, 1, 0, 2));
    for (const auto& handle : handles) EXPECT_TRUE(handle); // Also of what has fired.
}

TEST_F(Timers, AnyMixOfSchedulingCancellingAndPassingTimeFiresWhatAModelSays)
{
    std::mt19937 random(7);
    std::vector<Handle> handles;
    std::multimap<std::int64_t, int> model; // By deadline in milliseconds.
    std::int64_t now = 0;
    for (int number = 0; number < 3000; ++number) {
        const auto delay = static_cast<std::int64_t>(random() % 50);
        handles.push_back(schedule(Duration::milliseconds(delay), number));
        model.emplace(now + delay, number);
        if (random() % 3 == 0) {
            const auto victim = random() % handles.size();
            handles[victim].invalidate();
            std::erase_if(model, [&](const auto& entry) { return entry.second == static_cast<int>(victim); });
        }
        if (random() % 10 > 0) continue;
        const auto step = static_cast<std::int64_t>(random() % 40);
        now += step;
        fired.clear();
        clock.advance(Duration::milliseconds(step));
        runTurns(loop, 2);
        std::vector<int> expected;
        while (!model.empty() && model.begin()->first <= now) {
            expected.push_back(model.begin()->second);
            model.erase(model.begin());
        }
        ASSERT_EQ(fired, expected) << "after timer " << number;
    }
}

TEST_F(Timers, ATimerThatReschedulesItselfAtNoDelayLeavesTheTurnToOthers)
{
    test::PipeAndSocket pair(loop);
    test::Inbox inbox;
    inbox.readFrom(*pair.pipe);
    ::send(pair.socket, "x", 1, 0);
    Handle handle;
    int calls = 0;
    folly::Function<void()> again = [&] {
        ++calls;
        if (inbox.text.empty() && calls < 100) handle = loop.schedule(Duration(), [&] { again(); });
    };
    again();
    runTurns(loop);
    EXPECT_EQ(inbox.text, "x");
    EXPECT_LE(calls, 3);
}

TEST_F(Timers, ACancelledTimerFreesWhatItHoldsAtOnceAndAFiredOneToo)
{
    const auto token = std::make_shared<int>();
    auto cancelled = loop.schedule(Duration::seconds(1), [token] { FAIL(); });
    auto destroyed = std::make_unique<Handle>(loop.schedule(Duration::seconds(1), [token] { FAIL(); }));
    auto replaced = loop.schedule(Duration::seconds(1), [token] { FAIL(); });
    cancelled.invalidate();
    destroyed.reset();
    replaced = loop.schedule(Duration::seconds(1), [token] {});
    EXPECT_EQ(token.use_count(), 2);
    loop.schedule(Duration::seconds(1), [&, token] { fired.push_back(1); }).detach();
    pass(Duration::seconds(1));
    EXPECT_EQ(token.use_count(), 1);
    EXPECT_THAT(fired, ElementsAre(1));
    EXPECT_TRUE(replaced);
}

TEST_F(Timers, ACallbackMayEndItsOwnTimerAndOthersThatAreDue)
{
    Handle own;
    Handle other;
    own = loop.schedule(Duration::seconds(1), [&, text = std::string("a text too long to be stored in place")] {
        own.invalidate();
        other.invalidate();
        EXPECT_EQ(text.size(), 37U); // Still whole.
        fired.push_back(1);
    });
    other = schedule(Duration::seconds(1), 2);
    pass(Duration::seconds(1));
    EXPECT_THAT(fired, ElementsAre(1));
}

TEST_F(Timers, AHandleThatEndsOnAnotherThreadEndsTheTimerOnTheLoop)
{
    std::thread::id freedOn;
    auto handle = loop.schedule(Duration::seconds(1),
        [held = std::shared_ptr<void>(nullptr, [&](void*) { freedOn = std::this_thread::get_id(); })] { FAIL(); });
    auto detached = schedule(Duration::seconds(1), 2);
    auto dropped = schedule(Duration::seconds(1), 3);
    loop.post([&] {
        std::jthread([&] {
            handle.invalidate();
            detached.detach();
        });
        EXPECT_FALSE(handle);
    });
    runTurns(loop);
    pass(Duration::seconds(1));
    EXPECT_THAT(fired, ElementsAre(2, 3));
    EXPECT_EQ(freedOn, std::this_thread::get_id());
    loop.post([&] {
        std::jthread([&] { dropped.invalidate(); }); // Fired already.
        loop.stop();
    });
    loop.run(); // What the handle has posted is left to the loop's end.
}

TEST_F(Timers, AnotherThreadThatMovesTheClockWakesTheLoop)
{
    const auto handle = loop.schedule(Duration::seconds(600), [&] { loop.stop(); });
    std::jthread other([&] {
        for (int i = 0; i < 600; ++i) clock.advance(Duration::seconds(1));
    });
    loop.run();
    EXPECT_EQ(clock.monotonic(), Duration::seconds(600));
}

TEST(SystemTimers, WaitAtLeastTheirTimeAndWakeASleepingLoop)
{
    Loop loop;
    std::vector<int> fired;
    const auto start = loop.clock().monotonic();
    const auto early = loop.schedule(Duration::milliseconds(30), [&] { fired.push_back(1); });
    const auto late = loop.schedule(Duration::milliseconds(60), [&] {
        fired.push_back(2);
        loop.stop();
    });
    bool isCancelled = false; // On a busy machine it is due before.
    const auto cancelled =
        std::make_unique<Handle>(loop.schedule(Duration::milliseconds(10), [&] { EXPECT_FALSE(isCancelled); }));
    loop.post([&] {
        cancelled->invalidate();
        isCancelled = true;
    });
    loop.run();
    EXPECT_THAT(fired, ElementsAre(1, 2));
    EXPECT_GE(loop.clock().monotonic() - start, Duration::milliseconds(60));
}

} // namespace
