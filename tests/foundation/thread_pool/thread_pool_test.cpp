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

TEST(ThreadPool, RunsEachTaskOfEveryThreadBeforeItStops)
{
    constexpr int count = 2000;
    std::vector<int> runs(count); // Each element belongs to one task.
    ThreadPool pool(3);
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

    const test::ExpectAssertions assertions;
    const auto token = std::make_shared<int>();
    pool.schedule([token] { FAIL() << "runs on a stopped pool"; });
    EXPECT_EQ(token.use_count(), 1);
    ASSERT_EQ(assertions.reports().size(), 1u);
    EXPECT_NE(assertions.reports()[0].find("Can not schedule task on stopped thread pool"), std::string::npos);
}

TEST(ThreadPool, ReportsAnExceptionAndGoesOnWithTheNextTask)
{
    const test::ExpectUnhandled unhandled;
    bool isRun = false;
    ThreadPool pool(1);
    pool.schedule([] { throw std::runtime_error("from a task"); });
    pool.schedule([&] { isRun = true; });
    pool.stop();
    EXPECT_EQ(unhandled.messages(), std::vector<std::string> { "from a task" });
    EXPECT_TRUE(isRun);
}

} // namespace
