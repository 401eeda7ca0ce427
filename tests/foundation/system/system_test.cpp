// What can break here: a folder that others can read; a task lost or run twice.
#include "base/exceptions.h"
#include "foundation/io/file.h"
#include "foundation/system/path_manager.h"
#include "foundation/system/thread_pool.h"
#include "support/expectations.h"
#include "support/temporary_folder.h"
#include <gtest/gtest.h>
#include <latch>
#include <sys/stat.h>
#include <thread>

namespace {

using fn::File;
using fn::ThreadPool;

TEST(PathManager, MakesTheUsersFoldersPrivateWhateverTheMaskAndReportsOneThatCannotBeMade)
{
    const test::TemporaryFolder folder;
    auto& paths = fn::PathManager::instance();
    const auto modeOf = [&](std::string_view name) { return File(folder.file(name)).info().mode; };
    const auto mask = ::umask(0);
    paths.overrideFolder(7, folder.file("config/app"));
    EXPECT_EQ(paths.getPath(7, "sub/Passwords.prefs", false), folder.file("config/app/sub/Passwords.prefs"));
    EXPECT_EQ(modeOf("config/app"), 0700u); // Nobody asked; still the first writer must find it private.
    paths.getPath(7, "sub/Passwords.prefs", true);
    EXPECT_EQ(modeOf("config/app/sub"), 0700u);
    ::umask(mask);

    test::writeFile(folder.file("file"), "");
    paths.overrideFolder(7, folder.file("file/app"));
    EXPECT_NO_THROW(paths.getPath(7, "Instance.prefs", false));
    EXPECT_THROW(paths.getPath(7, "Instance.prefs", true), fn::FileException);
    paths.overrideFolder(7, std::nullopt);
}

TEST(ThreadPool, RunsEachTaskOfEveryThreadBeforeItStopsAndNoneAfterwards)
{
    constexpr int count = 2000;
    const test::ExpectUnhandled unhandled;
    const test::ExpectAssertions assertions;
    std::vector<int> runs(count); // Each element belongs to one task.
    ThreadPool pool(1);
    std::latch isFull(1);
    pool.schedule([&] {
        isFull.wait(); // All others are still to be run when it stops.
        throw std::runtime_error("from a task");
    });
    const auto schedule = [&](int begin) {
        for (int i = begin; i < count; i += 2) pool.schedule([&, i] { ++runs[static_cast<std::size_t>(i)]; });
    };
    std::jthread even(schedule, 0);
    schedule(1);
    even.join();
    isFull.count_down();
    for (int times = 0; times < 2; ++times) pool.stop();
    EXPECT_EQ(runs, std::vector<int>(count, 1));
    EXPECT_EQ(unhandled.messages(), std::vector<std::string> { "from a task" });

    const auto token = std::make_shared<int>();
    pool.schedule([token] { FAIL() << "runs on a stopped pool"; });
    EXPECT_EQ(token.use_count(), 1);
    EXPECT_EQ(assertions.reports().size(), 1U);
}

} // namespace
