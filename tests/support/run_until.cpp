#include "support/run_until.h"
#include "foundation/uv/loop.h"
#include "support/forked_child.h"
#include <gtest/gtest.h>
#include <uv.h>

namespace test {
namespace {

/// Looks at the condition once a turn: the task posts itself again while the loop does not block.
struct Watch {
    fn::RunLoop& loop;
    folly::Function<bool()> isOver;

    void look()
    {
        if (isOver())
            loop.stop();
        else
            loop.post([this] { look(); });
    }
};

} // namespace

bool runUntil(fn::RunLoop& loop, folly::Function<bool()> condition, std::chrono::milliseconds bound)
{
    const auto end = std::chrono::steady_clock::now() + bound;
    bool holds = false;
    Watch watch { loop, [&] {
                     holds = condition();
                     return holds || std::chrono::steady_clock::now() > end;
                 } };
    watch.look();
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
    EXPECT_TRUE(runUntil(loop, isQuiet)) << "it does not come to rest";
}

void runTurns(fn::RunLoop& loop, int count)
{
    Watch watch { loop, [&] { return count-- <= 0; } };
    watch.look();
    loop.run();
}

} // namespace test
