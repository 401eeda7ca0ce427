// What can break here: a timer early, late, out of order, lost, or fired after it was cancelled; a callable kept alive by
// a timer that is over; time of a test's clock that passes unnoticed.
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "support/run_until.h"
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <thread>

namespace {

using fn::Duration;
using fn::Handle;
using fn::uv::Loop;

/// Timers that are scheduled and cancelled at random, also by those that fire, beside a model.
class History {
public:
    explicit History(unsigned seed) : _random(seed) { }

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
        History(seed).run();
    }
}

TEST(Timers, AHandleThatEndsOnAnotherThreadEndsTheTimerOnTheLoop)
{
    fn::ManualClock clock;
    Loop loop { clock };
    std::vector<int> fired;
    std::thread::id freedOn;
    auto handle = loop.schedule(Duration::seconds(1),
        [held = std::shared_ptr<void>(nullptr, [&](void*) { freedOn = std::this_thread::get_id(); })] { FAIL(); });
    auto detached = loop.schedule(Duration::seconds(1), [&] { fired.push_back(1); });
    auto dropped = loop.schedule(Duration::seconds(1), [&] { fired.push_back(2); });
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
    EXPECT_EQ(fired, (std::vector { 1, 2 }));
    EXPECT_EQ(freedOn, std::this_thread::get_id());
    loop.post([&] {
        std::jthread([&] { dropped.invalidate(); }); // Fired already.
        loop.stop();
    });
    loop.run(); // What the handle has posted is left to the loop's end.
}

} // namespace
