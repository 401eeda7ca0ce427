// What can break here: names cut at a NUL byte, a folder that others can read, a library that goes; a task lost or run twice.
#include "base/exceptions.h"
#include "foundation/io/file.h"
#include "foundation/system/environment.h"
#include "foundation/system/path_manager.h"
#include "foundation/system/shared_library.h"
#include "foundation/system/thread_pool.h"
#include "support/expectations.h"
#include "support/temporary_folder.h"
#include <cstdlib>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <latch>
#include <sys/stat.h>
#include <thread>

namespace {

using fn::Environment;
using fn::File;
using fn::ThreadPool;

TEST(Environment, RefusesNamesAndValuesThatTheSystemWouldCut)
{
    const fn::String cut = std::string_view("CORE_TEST\0X", 11);
    for (const auto& name : { fn::String(), fn::String("A=B"), cut }) {
        EXPECT_THROW(Environment::set(name, "x"), fn::IOException);
        EXPECT_THROW(Environment::unset(name), fn::IOException);
        EXPECT_EQ(Environment::get(name), std::nullopt);
    }
    EXPECT_THROW(Environment::set("CORE_TEST", cut), fn::IOException);
    EXPECT_EQ(::getenv("CORE_TEST"), nullptr);
}

TEST(SharedLibrary, StaysLoadedAndKeepsItsSymbolsToItself)
{
    int (*countCalls)() = nullptr;
    {
        fn::SharedLibrary library;
        EXPECT_THROW(library.symbol("main"), fn::RuntimeException); // Not the program's own.
        for (const fn::String path : { INCOMPLETE_LIBRARY, "/nowhere/sample.dll" })
            EXPECT_THROW(library.load(path), fn::FileException) << "at once, where something is missing";
        EXPECT_THROW(library.load(SAMPLE_LIBRARY, 16), fn::RangeException);
        EXPECT_FALSE(library.isLoaded());
        library.load(SAMPLE_LIBRARY, 9);
        countCalls = reinterpret_cast<int (*)()>(library.symbol("countCallsOfSample"));
        EXPECT_EQ(countCalls(), 1);
        EXPECT_THROW(library.symbol("countCallsOfAnother"), fn::RuntimeException);
        EXPECT_THROW(library.load(SAMPLE_LIBRARY), fn::RuntimeException);
        EXPECT_EQ(::dlsym(RTLD_DEFAULT, "countCallsOfSample"), nullptr);
    }
    // Not even closing the handle of that load unloads it.
    void* const handle = ::dlopen(SAMPLE_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    for (int times = 0; times < 2; ++times) ::dlclose(handle);
    EXPECT_EQ(countCalls(), 2);
}

TEST(PathManager, MakesTheUsersFoldersPrivateWhateverTheMaskAndReportsOneThatCannotBeMade)
{
    const test::TemporaryFolder folder;
    auto& paths = fn::PathManager::instance();
    const auto modeOf = [&](std::string_view name) { return File(folder.file(name)).info().mode; };
    paths.setApplicationName("lumenhall");
    EXPECT_TRUE(paths.getPath(9, "x.log", false).endsWith("/lumenhall/logs/x.log"));
    EXPECT_THROW(paths.getPath(10, "x", false), fn::RangeException);
    const auto mask = ::umask(0);
    paths.overrideFolder(7, folder.file("config/app"));
    paths.overrideFolder(9, folder.file("state/app/logs"));
    EXPECT_EQ(paths.getPath(7, "sub/Passwords.prefs", false), folder.file("config/app/sub/Passwords.prefs"));
    EXPECT_EQ(modeOf("config/app"), 0700u); // Nobody asked; still the first writer must find it private.
    paths.getPath(7, "sub/Passwords.prefs", true);
    EXPECT_EQ(modeOf("config/app/sub"), 0700u);
    paths.getPath(9, false);
    EXPECT_FALSE(File(folder.file("state")).exists());
    paths.getPath(9, true);
    EXPECT_EQ(modeOf("state/app/logs"), 0700u);
    ::umask(mask);

    test::writeFile(folder.file("file"), "");
    paths.overrideFolder(7, folder.file("file/app"));
    EXPECT_NO_THROW(paths.getPath(7, "Instance.prefs", false));
    EXPECT_THROW(paths.getPath(7, "Instance.prefs", true), fn::FileException);
    for (const int type : { 7, 9 }) paths.overrideFolder(type, std::nullopt);
    paths.setApplicationName(paths.namePrefix());
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
