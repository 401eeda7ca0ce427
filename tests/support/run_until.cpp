#include "support/run_until.h"
#include "foundation/uv/loop.h"
#include "foundation/uv/turn_watcher.h"
#include "support/forked_child.h"
#include <functional>
#include <gtest/gtest.h>
#include <uv.h>

namespace test {
namespace {

/// Stops a loop after a time of the system, also where the loop's own timers follow a manual clock.
class Bound {
public:
    Bound(fn::RunLoop& loop, std::chrono::milliseconds after) : _loop(loop)
    {
        uv_timer_init(loop.uvLoop().uvHandle(), _timer);
        _timer->data = this;
        const auto onEnd = [](uv_timer_t* timer) { static_cast<Bound*>(timer->data)->_loop.stop(); };
        uv_timer_start(_timer, onEnd, static_cast<std::uint64_t>(after.count()), 0);
    }
    Bound(const Bound&) = delete;
    ~Bound()
    {
        uv_close(reinterpret_cast<uv_handle_t*>(_timer),
            [](uv_handle_t* timer) { delete reinterpret_cast<uv_timer_t*>(timer); });
    }

private:
    fn::RunLoop& _loop;
    uv_timer_t* const _timer = new uv_timer_t; // Lives until libuv has closed it.
};

} // namespace

bool runUntil(fn::RunLoop& loop, folly::Function<bool()> condition, std::chrono::milliseconds bound)
{
    bool holds = condition();
    if (holds) return true;
    const Bound end(loop, bound);
    const fn::uv::TurnWatcher look(loop.uvLoop(), fn::uv::TurnWatcher::Moment::BeforePoll, [&] {
        holds = holds || condition();
        if (holds) loop.stop();
    });
    loop.run();
    return holds;
}

bool spinUntil(fn::RunLoop& loop, folly::Function<bool()> condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    bool holds = false;
    // Once a turn: while a task is posted the loop does not block.
    const std::function<void()> look = [&] {
        holds = condition();
        if (holds || std::chrono::steady_clock::now() > end)
            loop.stop();
        else
            loop.post([&] { look(); });
    };
    look();
    loop.run();
    return holds;
}

void settle(fn::RunLoop& loop)
{
    constexpr int enough = 10; // Turns: what is handled in one is followed by writes within so many tasks.
    const auto descriptor = uv_backend_fd(loop.uvLoop().uvHandle());
    int quiet = 0;
    const auto isQuiet = [&] {
        quiet = awaitReadable(descriptor, std::chrono::milliseconds(0)) ? 0 : quiet + 1;
        return quiet > enough;
    };
    EXPECT_TRUE(spinUntil(loop, isQuiet)) << "it does not come to rest";
}

void runTurns(fn::RunLoop& loop, int count)
{
    spinUntil(loop, [&] { return count-- <= 0; });
}

void onLoop(folly::Function<void()> step)
{
    fn::uv::Loop loop;
    loop.post(std::move(step));
    runTurns(loop);
}

} // namespace test
