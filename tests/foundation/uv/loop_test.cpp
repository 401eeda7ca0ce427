// What can break here: a task or timer lost, doubled or out of order; a loop that sleeps while work waits; what it owns freed late.
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "pipe_pair.h"
#include "support/run_until.h"
#include <gtest/gtest.h>
#include <map>
#include <random>
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

/// Timers that are scheduled and cancelled at random, also by those that fire, beside a model.
class TimerHistory {
public:
    explicit TimerHistory(unsigned seed) : _random(seed) { }

    void run()
    {
        for (int step = 0; step < 300; ++step) {
            change();
            ASSERT_EQ(_token.use_count(), 1 + static_cast<long>(_model.size())) << "What is over is freed at once.";
            if (below(3) > 0) continue;
            const auto time = Duration::microseconds(below(4'000));
            _now = _now + time;
            _clock.advance(time);
            test::runTurns(_loop, 10); // What is scheduled for now by one that fires comes a turn later.
            ASSERT_TRUE(_model.empty() || _model.begin()->first > _now) << "late: " << _model.begin()->second;
        }
    }

private:
    int below(int limit) { return static_cast<int>(_random() % static_cast<unsigned>(limit)); }

    void change()
    {
        if (below(3) > 0) schedule();
        if (below(2) > 0 || _handles.empty()) return;
        const auto victim = below(static_cast<int>(_handles.size()));
        switch (below(3)) {
        case 0: _handles[victim].invalidate(); break;
        case 1: _handles[victim] = Handle(); break;
        default: Handle(std::move(_handles[victim]));
        }
        std::erase_if(_model, [&](const auto& entry) { return entry.second == victim; });
    }

    void schedule()
    {
        const auto number = static_cast<int>(_handles.size());
        const Duration delays[] = { Duration::microseconds(below(5'000)), Duration::milliseconds(below(5)), Duration(),
            Duration::seconds(-5), Duration(INT64_MIN), Duration(INT64_MAX) };
        const auto delay = delays[below(20) ? below(3) : below(6)];
        _handles.push_back(_loop.schedule(delay, [this, number, kept = _token] { fire(number); }));
        const auto rounded = delay > Duration() ? (delay.totalMicroseconds() - 1) / 1'000 + 1 : 0;
        _model.emplace(_now + Duration::milliseconds(rounded), number);
    }

    void fire(int number)
    {
        ASSERT_FALSE(_model.empty());
        EXPECT_TRUE(_handles[number]);
        EXPECT_LE(_model.begin()->first, _now) << "early";
        EXPECT_EQ(_model.begin()->second, number) << "Those of one time in the order in which they were scheduled.";
        _model.erase(_model.begin());
        if (below(3) == 0) _handles[number].invalidate(); // Its own, while it runs.
        change();
    }

    std::mt19937 _random;
    fn::ManualClock _clock;
    Loop _loop { _clock };
    Duration _now = _clock.monotonic();
    std::vector<Handle> _handles;
    std::multimap<Duration, int> _model; ///< By deadline, and those of one deadline in order.
    const std::shared_ptr<int> _token = std::make_shared<int>();
};

TEST(Timers, FireAsAModelSays)
{
    for (unsigned seed = 0; seed < 60 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        TimerHistory(seed).run();
    }
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
