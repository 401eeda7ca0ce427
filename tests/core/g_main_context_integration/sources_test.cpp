// What can break here: a source that is not heard, one that is heard on another thread, a loop that spins.
#include "fixture.h"
#include "foundation/uv/turn_watcher.h"
#include "support/expectations.h"
#include <algorithm>
#include <array>
#include <atomic>
#include <fcntl.h>
#include <future>
#include <glib-unix.h>
#include <unistd.h>

namespace {

using test::attach;
using test::callAfter;
using test::callWhenIdle;
using test::MainContext;

TEST_F(MainContext, HearsSourcesThatAreAttachedWhileTheWaitChangesThreads)
{
    // The task runs just after the turn has handed the wait to the pool: whether a thread has it by then is a matter of luck.
    constexpr int rounds = 3000;
    int round = 0;
    std::function<void()> next = [&] {
        if (++round == rounds)
            loop->stop();
        else
            loop->post([&] { callWhenIdle(next); });
    };
    callWhenIdle(next);
    EXPECT_TRUE(runUntilStopped());
    EXPECT_EQ(round, rounds);
}

TEST_F(MainContext, HearsSourcesThatOtherThreadsAttachAndDestroy)
{
    constexpr int rounds = 1000;
    std::atomic<int> heard = 0;
    std::atomic<int> ended = 0;
    const auto loopThread = std::this_thread::get_id();
    const auto attachAndAwait = [&] {
        for (int i = 0; i < rounds; ++i) {
            GSource* const unneeded = g_timeout_source_new(3'600'000);
            g_source_attach(unneeded, nullptr);
            const auto isHeard = std::make_shared<std::promise<std::thread::id>>();
            callWhenIdle([isHeard] { isHeard->set_value(std::this_thread::get_id()); });
            g_source_destroy(unneeded);
            g_source_unref(unneeded);
            auto thread = isHeard->get_future();
            if (thread.wait_for(std::chrono::seconds(20)) != std::future_status::ready) break;
            if (thread.get() == loopThread) ++heard;
        }
        if (++ended == 2) loop->stop();
    };
    std::thread first(attachAndAwait);
    std::thread second(attachAndAwait);
    EXPECT_TRUE(runUntilStopped());
    first.join();
    second.join();
    EXPECT_EQ(heard, 2 * rounds);
}

struct Readers {
    fn::uv::Loop& loop;
    std::size_t left;

    static gboolean read(gint descriptor, GIOCondition, gpointer data)
    {
        char byte = 0;
        EXPECT_EQ(::read(descriptor, &byte, 1), 1);
        auto& readers = *static_cast<Readers*>(data);
        if (--readers.left == 0) readers.loop.stop();
        return G_SOURCE_CONTINUE;
    }
};

TEST_F(MainContext, HearsMoreSocketsThanItHadRoomForAndFewerAgain)
{
    for (const std::size_t size : { 3u, 100u, 1u }) {
        Readers readers { *loop, size };
        std::vector<std::array<int, 2>> pipes(size);
        std::vector<guint> sources;
        for (auto& ends : pipes) {
            ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
            sources.push_back(g_unix_fd_add(ends[0], G_IO_IN, Readers::read, &readers));
        }
        callAfter(1, [&] { // The wait is out by then.
            for (const auto& ends : pipes) EXPECT_EQ(::write(ends[1], "x", 1), 1);
        });
        EXPECT_TRUE(runUntilStopped());
        EXPECT_EQ(readers.left, 0u);
        std::ranges::for_each(sources, g_source_remove);
        for (const auto& ends : pipes) std::ranges::for_each(ends, ::close);
    }
}

TEST_F(MainContext, GoesOnInsideACallbackThatRunsTheLoop)
{
    std::vector<std::string> order;
    callWhenIdle([&] {
        order.push_back("outer begins");
        callAfter(1, [&] {
            order.push_back("inner");
            loop->stop();
        });
        loop->run();
        order.push_back("outer ends");
        callWhenIdle([&] { loop->stop(); });
    });
    EXPECT_TRUE(runUntilStopped());
    EXPECT_EQ(order, (std::vector<std::string> { "outer begins", "inner", "outer ends" }));
}

TEST_F(MainContext, ReportsAnExceptionOutOfACallbackAndHearsTheOtherSources)
{
    const test::ExpectUnhandled unhandled;
    callWhenIdle([] { throw std::runtime_error("from a callback"); });
    callWhenIdle([&] { loop->stop(); });
    EXPECT_TRUE(runUntilStopped());
    EXPECT_EQ(unhandled.messages(), std::vector<std::string> { "from a callback" });
    EXPECT_FALSE(g_main_context_is_owner(nullptr));
    callAfter(1, [&] { loop->stop(); });
    EXPECT_TRUE(runUntilStopped());
}

TEST_F(MainContext, SleepsWhileNothingHappensAlsoWhereSomebodyElseHasTheContext)
{
    int turns = 0;
    const fn::uv::TurnWatcher watcher(*loop, fn::uv::TurnWatcher::Moment::AfterPoll, [&] { ++turns; });
    callAfter(3'600'000, [] {});
    runFor(300);
    EXPECT_LE(turns, 10);

    std::promise<void> isOver;
    std::promise<void> isTaken;
    std::thread other([&] {
        while (!g_main_context_acquire(nullptr)) g_main_context_wakeup(nullptr);
        isTaken.set_value();
        isOver.get_future().wait();
        g_main_context_release(nullptr);
    });
    isTaken.get_future().wait();
    turns = 0;
    runFor(300);
    EXPECT_LE(turns, 60);
    isOver.set_value();
    other.join();
    callWhenIdle([&] { loop->stop(); });
    EXPECT_TRUE(runUntilStopped());
}

} // namespace
