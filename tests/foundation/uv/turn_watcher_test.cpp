// What can break here: a watcher that ends, or whose loop ends, while it is being called.
#include "foundation/uv/turn_watcher.h"
#include "support/expectations.h"
#include "support/run_until.h"
#include <gtest/gtest.h>

namespace {

using fn::uv::Loop;
using fn::uv::TurnWatcher;

TEST(TurnWatcher, IsCalledOnceATurnBeforeAndAfterThePollAndAlsoInARunInsideOfItself)
{
    Loop loop;
    std::string order;
    const TurnWatcher after(loop, TurnWatcher::Moment::AfterPoll, [&] {
        order += "after(";
        if (order == "before after(") loop.run();
        order += ") ";
        loop.stop();
    });
    const TurnWatcher before(loop, TurnWatcher::Moment::BeforePoll, [&] {
        order += "before ";
        loop.post([] {}); // Else the poll would wait.
    });
    loop.run();
    EXPECT_EQ(order, "before after(before after() ) ");
}

TEST(TurnWatcher, MayEndInItsOwnCallbackThrowAndOutliveItsLoop)
{
    auto loop = std::make_unique<Loop>();
    const test::ExpectUnhandled unhandled;
    const auto token = std::make_shared<int>();
    std::optional<TurnWatcher> ended;
    ended.emplace(*loop, TurnWatcher::Moment::BeforePoll, [&, token] {
        ended.reset();
        EXPECT_EQ(token.use_count(), 3); // The callback lives while it runs.
        throw std::runtime_error("once");
    });
    int calls = 0;
    const TurnWatcher outliving(*loop, TurnWatcher::Moment::AfterPoll, [&, token] { ++calls; });
    test::runTurns(*loop, 3);
    EXPECT_EQ(unhandled.messages(), std::vector<std::string> { "once" });
    EXPECT_GE(calls, 3);
    EXPECT_EQ(token.use_count(), 2);
    loop.reset();
    EXPECT_EQ(token.use_count(), 1);
}

} // namespace
