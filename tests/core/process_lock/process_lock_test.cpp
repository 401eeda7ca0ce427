// What can break here: two holders at once, a lock that outlives its process or ends before the last copy, one that a child
// keeps, a name that leads out of the private folder.
#include "base/exceptions.h"
#include "core/services/process_lock.h"
#include "foundation/system/environment.h"
#include "foundation/system/named_mutex.h"
#include "platform/pipe_path.h"
#include "support/child_process.h"
#include "support/forked_child.h"
#include "support/temporary_folder.h"
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using core::ProcessLock;

const fn::String name = "Skyfold";

struct ProcessLocks : testing::Test {
    /// Whether another process of this user would have the name.
    static bool isFree()
    {
        return test::ForkedChild([] { return ProcessLock(name).exclusive(); }).succeeds();
    }

    test::TemporaryFolder folder;
    platform::ScopedPipeFolder pipes { folder.path().string() };
};

TEST_F(ProcessLocks, OneProcessHasTheNameUntilItEndsHoweverItEnds)
{
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    test::ForkedChild holder([&ends] {
        const ProcessLock lock(name);
        const char isExclusive = lock.exclusive();
        while (::write(ends[1], &isExclusive, 1) == 1) ::pause();
        return false;
    });
    char isExclusive = 0;
    EXPECT_EQ(::read(ends[0], &isExclusive, 1), 1);
    EXPECT_TRUE(isExclusive);
    const ProcessLock late(name);
    EXPECT_FALSE(late.exclusive());
    EXPECT_TRUE(ProcessLock("Lumen Hall").exclusive()); // Another name is another matter.
    holder.kill();
    EXPECT_FALSE(late.exclusive()); // It tells how it was made.
    EXPECT_TRUE(isFree()); // Who was too late holds nothing.
    for (const int end : ends) ::close(end);
}

TEST_F(ProcessLocks, TheLastCopyEndsItAndAProgramStartedMeanwhileDoesNotKeepIt)
{
    auto lock = std::make_unique<ProcessLock>(name);
    ASSERT_TRUE(lock->exclusive());
    test::ChildProcess child({ "/bin/sh", "-c", "echo up; kill -STOP $$" });
    ASSERT_EQ(child.readLine(), "up");
    ProcessLock copy = *lock;
    lock.reset();
    EXPECT_TRUE(copy.exclusive());
    EXPECT_FALSE(isFree());
    copy = ProcessLock("something else");
    EXPECT_TRUE(isFree());
}

TEST_F(ProcessLocks, TheFileIsThisUsersAlone)
{
    const auto path = platform::privatePath(name + "-" + fn::Environment::userName() + ".lock").toStdString();
    const ProcessLock lock(name);
    EXPECT_TRUE(lock.exclusive());
    EXPECT_FALSE(ProcessLock(name).exclusive()); // The own process has no second one either.
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600));

    EXPECT_THROW(ProcessLock { "../x" }, fn::IOException);
    fs::create_symlink(folder.path() / "elsewhere", folder.path() / "linked.lock"); // Somebody's: it is not followed.
    EXPECT_THROW(fn::NamedMutex("linked", true), fn::FileException);
    EXPECT_FALSE(fs::exists(folder.path() / "elsewhere"));
}

} // namespace
