// What can break here: a wait on the pool that outlives whoever it works for, and one that keeps the context for itself.
#include "fixture.h"
#include "foundation/system/thread_pool.h"
#include "support/expectations.h"
#include "support/run_until.h"
#include <future>

namespace {

using core::GMainContextIntegration;
using test::callAfter;
using test::callWhenIdle;
using test::MainContext;

TEST_F(MainContext, LivesFromTheFirstInitToTheLastQuit)
{
    const auto* const first = GMainContextIntegration::instance();
    EXPECT_EQ(GMainContextIntegration::instance()->context(), g_main_context_default());
    {
        fn::uv::Loop ignored;
        GMainContextIntegration::init(ignored);
    }
    EXPECT_EQ(GMainContextIntegration::instance(), first);
    GMainContextIntegration::quit();
    callWhenIdle([&] { loop->stop(); });
    EXPECT_TRUE(runUntilStopped());

    GMainContextIntegration::quit();
    EXPECT_EQ(GMainContextIntegration::instance(), nullptr);
    bool isHeard = false;
    callWhenIdle([&] {
        isHeard = true;
        loop->stop();
    });
    test::runTurns(*loop);
    EXPECT_FALSE(isHeard);

    GMainContextIntegration::init(*loop);
    EXPECT_TRUE(runUntilStopped());
    EXPECT_TRUE(isHeard);

    GMainContextIntegration::quit();
    const test::ExpectAssertions assertions;
    GMainContextIntegration::quit();
    EXPECT_EQ(assertions.reports().size(), 1u);
}

TEST_F(MainContext, IsMadeAnewWhileTheWaitOfTheOldOneIsStillOut)
{
    for (int i = 0; i < 300; ++i) {
        // Every other time the loop goes first, and the new one is on another loop.
        test::runTurns(*loop, i % 5);
        if (i % 2 == 0) loop.reset();
        GMainContextIntegration::quit();
        if (i % 2 == 0) loop.emplace();
        GMainContextIntegration::init(*loop);
        if (i % 3 != 0) continue;
        callWhenIdle([&] { loop->stop(); });
        ASSERT_TRUE(runUntilStopped()) << i;
    }
}

TEST_F(MainContext, EndsAtOnceAndMayBeginAgainInACallbackOfGLib)
{
    bool isHeard = false;
    callWhenIdle([&] {
        GMainContextIntegration::quit();
        EXPECT_EQ(GMainContextIntegration::instance(), nullptr);
        callWhenIdle([&] { isHeard = true; });
        loop->stop();
    });
    bool isReadyTogether = false;
    callWhenIdle([&] { isReadyTogether = true; });
    EXPECT_TRUE(runUntilStopped());
    EXPECT_TRUE(isReadyTogether);
    test::runTurns(*loop);
    EXPECT_FALSE(isHeard);

    GMainContextIntegration::init(*loop);
    callWhenIdle([&] {
        GMainContextIntegration::quit();
        GMainContextIntegration::init(*loop);
        callAfter(1, [&] { loop->stop(); });
    });
    EXPECT_TRUE(runUntilStopped());
    EXPECT_TRUE(isHeard);
}

/// Keeps all threads of the default pool busy.
class BusyPool {
public:
    BusyPool()
    {
        const auto threads = std::max(4u, std::thread::hardware_concurrency());
        const std::shared_future<void> end(_end.get_future());
        for (unsigned i = 0; i < threads; ++i) fn::ThreadPool::defaultPool().schedule([end] { end.wait(); });
    }
    void release() { _end.set_value(); }

private:
    std::promise<void> _end;
};

TEST_F(MainContext, ForgetsAWaitThatHasNotBegunWhenItEnds)
{
    GMainContextIntegration::quit();
    BusyPool pool;
    GMainContextIntegration::init(*loop);
    test::runTurns(*loop);
    GMainContextIntegration::quit();
    g_main_context_iteration(nullptr, FALSE); // Takes the wake-up: the wait would have no end, and keep the context.
    pool.release();
    std::promise<void> isNext;
    fn::ThreadPool::defaultPool().schedule([&] { isNext.set_value(); });
    isNext.get_future().wait();
    EXPECT_TRUE(test::runUntil(*loop, [] {
        const bool isFree = g_main_context_acquire(nullptr);
        if (isFree) g_main_context_release(nullptr);
        return isFree;
    }));
    GMainContextIntegration::init(*loop);
    callWhenIdle([&] { loop->stop(); });
    EXPECT_TRUE(runUntilStopped());
}

} // namespace
