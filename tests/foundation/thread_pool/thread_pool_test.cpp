// What can break here: a task that is lost, run twice or after the pool's end, threads that wait for each other.
#include "foundation/system/thread_pool.h"
#include "support/expectations.h"
#include <gtest/gtest.h>
#include <latch>
#include <thread>

namespace {

using fn::ThreadPool;

TEST(ThreadPool, RunsFourTasksThatNeedEachOtherAtOnce)
{
    std::latch together(4);
    std::latch over(4);
    for (int i = 0; i < 4; ++i) {
        ThreadPool::defaultPool().schedule([&] {
            together.arrive_and_wait();
            over.count_down();
        });
    }
    over.wait();
}

TEST(ThreadPool, RunsEachTaskOfEveryThreadBeforeItStopsAndNoneAfterwards)
{
    constexpr int count = 2000;
    const test::ExpectUnhandled unhandled;
    const test::ExpectAssertions assertions;
    std::vector<int> runs(count); // Each element belongs to one task.
    ThreadPool pool(3);
    pool.schedule([] { throw std::runtime_error("from a task"); });
    const auto schedule = [&](int begin) {
        for (int i = begin; i < count; i += 2) pool.schedule([&, i] { ++runs[static_cast<std::size_t>(i)]; });
    };
    std::thread even(schedule, 0);
    std::thread odd(schedule, 1);
    even.join();
    odd.join();
    pool.stop();
    pool.stop();
    EXPECT_EQ(runs, std::vector<int>(count, 1));
    EXPECT_EQ(unhandled.messages(), std::vector<std::string> { "from a task" });

    const auto token = std::make_shared<int>();
    pool.schedule([token] { FAIL() << "runs on a stopped pool"; });
    EXPECT_EQ(token.use_count(), 1);
    EXPECT_EQ(assertions.reports().size(), 1U);
}

} // namespace
