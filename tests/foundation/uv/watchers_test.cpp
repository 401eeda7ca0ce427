// What can break here: a watcher that ends, or whose loop ends, while it is called; one that an error stops for good.
#include "foundation/exceptions.h"
#include "foundation/uv/async.h"
#include "foundation/uv/poll.h"
#include "foundation/uv/signal_watcher.h"
#include "foundation/uv/turn_watcher.h"
#include "support/expectations.h"
#include "support/run_until.h"
#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using fn::Task;
using fn::uv::Async;
using fn::uv::Loop;
using fn::uv::Poll;
using fn::uv::SignalWatcher;
using fn::uv::TurnWatcher;
using test::runTurns;
using test::runUntil;

struct Pipe {
    Pipe() { EXPECT_EQ(::pipe(ends), 0); }
    ~Pipe()
    {
        ::close(ends[0]);
        ::close(ends[1]);
    }
    void write() const { EXPECT_EQ(::write(ends[1], "x", 1), 1); }
    void read() const
    {
        char byte;
        EXPECT_EQ(::read(ends[0], &byte, 1), 1);
    }
    int ends[2];
};

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

Watcher poll(Loop& loop, Task callback)
{
    const auto pipe = std::make_shared<Pipe>();
    auto reads = [pipe, callback = std::move(callback)]() mutable {
        pipe->read();
        callback();
    };
    return { std::make_shared<Poll>(loop, pipe->ends[0], std::move(reads)), [pipe] { pipe->write(); } };
}

Watcher turnWatcher(Loop& loop, Task callback)
{
    const auto holder = std::make_shared<TurnWatcher>(loop, TurnWatcher::Moment::AfterPoll, std::move(callback));
    return { holder, [] {} }; // Each turn.
}

Watcher signalWatcher(Loop& loop, Task callback)
{
    return { std::make_shared<SignalWatcher>(loop, SIGUSR1, std::move(callback)), [] { ::raise(SIGUSR1); } };
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

INSTANTIATE_TEST_SUITE_P(Kinds, Watchers, testing::Values(async, poll, turnWatcher, signalWatcher));

TEST(Poll, AnnouncesWhatIsNotReadAndAnErrorAgainAndAgainAndRefusesWhatCannotBeWatched)
{
    Loop loop;
    int calls = 0;
    Pipe pipe;
    const Poll unread(loop, pipe.ends[0], [&] {
        ++calls;
        pipe.read();
    });
    for (int i = 0; i < 3; ++i) pipe.write();
    runTurns(loop);
    EXPECT_EQ(calls, 3);

    Pipe broken; // The writing end of a pipe that nobody can read has an error for good.
    ::close(std::exchange(broken.ends[0], -1));
    const Poll failing(loop, broken.ends[1], [&] { ++calls; });
    EXPECT_TRUE(runUntil(loop, [&] { return calls > 5; }));
    EXPECT_THROW(Poll(loop, -1, [] {}), fn::IOException);
    EXPECT_THROW(SignalWatcher(loop, SIGKILL, [] {}), fn::IOException);
    runTurns(loop);
}

} // namespace
