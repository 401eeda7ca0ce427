#include "support/run_until.h"

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

void runTurns(fn::RunLoop& loop, int count)
{
    Watch watch { loop, [&] { return count-- <= 0; } };
    watch.look();
    loop.run();
}

} // namespace test
