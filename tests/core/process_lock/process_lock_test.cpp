// What can break here: two holders at once, a lock that outlives its process or ends before the last copy, one that a child
// keeps, a name that leads out of the private folder.
#include "core/process_lock.h"
#include "foundation/exception_factory.h"
#include "foundation/exceptions.h"
#include "foundation/system/environment.h"
#include "foundation/system/named_mutex.h"
#include "platform/pipe_path.h"
#include "support/child_process.h"
#include "support/forked_child.h"
#include "support/temporary_folder.h"
#include <folly/Function.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

folly::Function<void()> beforeLocking; // Runs once.

} // namespace

/// Takes the place of the system's own, in the library, too.
extern "C" FN_EXPORT int flock(int descriptor, int operation)
{
    if (auto action = std::exchange(beforeLocking, {})) action();
    return static_cast<int>(::syscall(SYS_flock, descriptor, operation));
}

namespace {

using core::ProcessLock;

const fn::String name = "Skyfold";

/// Another process of this user that makes the lock, tells whether it is exclusive, and keeps it until it is ended.
class OtherHolder {
public:
    OtherHolder()
    {
        int ends[2];
        if (::pipe(ends) != 0) throw std::runtime_error("pipe");
        _process.emplace([&ends] {
            const ProcessLock lock(name);
            const char answer = lock.exclusive() ? 'x' : 's';
            while (::write(ends[1], &answer, 1) == 1) ::pause();
            return false;
        });
        ::close(ends[1]);
        char answer = 0;
        EXPECT_EQ(::read(ends[0], &answer, 1), 1);
        ::close(ends[0]);
        _exclusive = answer == 'x';
    }

    bool exclusive() const { return _exclusive; }
    void kill() { _process->kill(); }

private:
    std::optional<test::ForkedChild> _process;
    bool _exclusive = false;
};

struct ProcessLocks : testing::Test {
    test::TemporaryFolder folder;
    platform::ScopedPipeFolder pipes { folder.path().string() };
};

TEST_F(ProcessLocks, OneProcessHasTheNameUntilItEndsHoweverItEnds)
{
    OtherHolder first;
    EXPECT_TRUE(first.exclusive());
    const ProcessLock late(name);
    EXPECT_FALSE(late.exclusive());
    EXPECT_TRUE(ProcessLock("Lumen Hall").exclusive()); // Another name is another matter.
    first.kill();
    EXPECT_FALSE(late.exclusive()); // It tells how it was made.
    OtherHolder second; // Who was too late holds nothing.
    EXPECT_TRUE(second.exclusive());
}

TEST_F(ProcessLocks, TheLastCopyEndsIt)
{
    auto lock = std::make_unique<ProcessLock>(name);
    ASSERT_TRUE(lock->exclusive());
    EXPECT_FALSE(ProcessLock(name).exclusive()); // The own process has no second one either.
    ProcessLock copy("something else");
    copy = *lock;
    EXPECT_TRUE(ProcessLock("something else").exclusive()); // What it was before has gone.
    auto another = std::make_unique<ProcessLock>(copy);
    lock.reset();
    another.reset();
    EXPECT_TRUE(copy.exclusive());
    EXPECT_FALSE(OtherHolder().exclusive());
    copy = ProcessLock("something else");
    EXPECT_TRUE(OtherHolder().exclusive());
}

TEST_F(ProcessLocks, AProgramStartedMeanwhileDoesNotKeepIt)
{
    auto lock = std::make_unique<ProcessLock>(name);
    test::ChildProcess child({ "/bin/sh", "-c", "echo up; kill -STOP $$" });
    ASSERT_EQ(child.readLine(), "up");
    lock.reset();
    EXPECT_TRUE(ProcessLock(name).exclusive());
}

TEST_F(ProcessLocks, TheFileIsThisUsersAloneAndOfHisName)
{
    const ProcessLock lock(name);
    const auto path = platform::privatePath(name + "-" + fn::Environment::userName() + ".lock");
    struct stat status;
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(ProcessLocks, AFileThatIsRemovedBeforeItIsLockedIsMadeAnew)
{
    beforeLocking = [&] {
        for (const auto& entry : std::filesystem::directory_iterator(folder.path())) std::filesystem::remove(entry);
    };
    const ProcessLock lock(name);
    EXPECT_TRUE(lock.exclusive());
    EXPECT_FALSE(ProcessLock(name).exclusive());
}

TEST_F(ProcessLocks, WhatIsNoMatterOfATakenNameReachesTheCaller)
{
    using namespace std::string_view_literals;
    for (const auto bad : { "../x"sv, "a/b"sv, "a\0b"sv, ".."sv }) {
        EXPECT_THROW(ProcessLock { fn::String(bad) }, fn::IOException) << bad;
        EXPECT_THROW(fn::NamedMutex(bad, false), fn::IOException) << bad;
    }
    EXPECT_THROW(ProcessLock(std::string(300, 'x')), fn::IOException);
    // Somebody has put a link there: it is not followed.
    std::filesystem::create_symlink(folder.path() / "elsewhere", folder.path() / "linked.lock");
    EXPECT_THROW(fn::NamedMutex("linked", true), fn::FileException);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "elsewhere"));
}

TEST_F(ProcessLocks, ATakenNameHasAnExceptionOfItsOwn)
{
    const fn::NamedMutex mutex("taken", true);
    try {
        const fn::NamedMutex second("taken", true);
        FAIL() << "two holders";
    } catch (const fn::NamedMutexAlreadyExistsException& exception) {
        EXPECT_THAT(exception.what(), testing::HasSubstr("Name: taken"));
    }
    const auto rebuilt = fn::ExceptionFactory::createException("NamedMutexAlreadyExistsException", "x");
    EXPECT_TRUE(dynamic_cast<fn::NamedMutexAlreadyExistsException*>(rebuilt.get()));
}

} // namespace
