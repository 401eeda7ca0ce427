// What can break here: a watcher that ends, or whose loop ends, while it is called.
#include "foundation/uv/async.h"
#include "foundation/uv/turn_watcher.h"
#include "support/expectations.h"
#include "support/run_until.h"
#include <gtest/gtest.h>

namespace {

using fn::Task;
using fn::uv::Async;
using fn::uv::Loop;
using fn::uv::TurnWatcher;
using test::runTurns;
using test::runUntil;

/// Something that calls back after each `trigger()`.
struct Watcher {
    std::shared_ptr<void> holder;
    std::function<void()> trigger;
};
using Kind = Watcher (*)(Loop&, Task);

Watcher async(Loop& loop, Task callback)
{
    const auto holder = std::make_shared<Async>(loop, std::move(callback));
    return { holder, [sender = holder.get()] { sender->send(); } };
}

Watcher turnWatcher(Loop& loop, Task callback)
{
    const auto holder = std::make_shared<TurnWatcher>(loop, TurnWatcher::Moment::AfterPoll, std::move(callback));
    return { holder, [&loop] { loop.post([] {}); } }; // Each turn, which need not wait for anything.
}

struct Watchers : testing::TestWithParam<Kind> {
    std::unique_ptr<Loop> loop = std::make_unique<Loop>();
    const std::shared_ptr<int> token = std::make_shared<int>();
};

TEST_P(Watchers, MayRunTheLoopAgainAndEndInTheirCallbackWhichIsWholeUntilItThrowsOrOutliveTheLoop)
{
    const test::ExpectUnhandled unhandled;
    int calls = 0;
    int others = 0;
    bool isOver = false;
    const auto other = GetParam()(*loop, [&, kept = token] { ++others; });
    Watcher watcher;
    watcher = GetParam()(*loop, [&, kept = token] {
        if (++calls > 1) return;
        watcher.trigger();
        EXPECT_TRUE(runUntil(*loop, [&] { return calls > 1; }));
        watcher.holder.reset();
        runTurns(*loop, 2);
        EXPECT_EQ(kept.use_count(), 3);
        isOver = true;
        throw std::runtime_error("once");
    });
    watcher.trigger();
    other.trigger();
    EXPECT_TRUE(runUntil(*loop, [&] { return isOver && others > 0; }));
    runTurns(*loop);
    EXPECT_EQ(unhandled.messages(), std::vector<std::string> { "once" });
    EXPECT_EQ(token.use_count(), 2);
    loop.reset(); // Before the other one.
    EXPECT_EQ(token.use_count(), 1);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Watchers, testing::Values(async, turnWatcher));

} // namespace
