// What can break here: a name that leads out of the folder, a folder that others can enter or have put there.
#include "base/exceptions.h"
#include "platform/pipe_path.h"
#include "support/scoped_variable.h"
#include "support/temporary_folder.h"
#include <gmock/gmock.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using platform::pipePath;
using test::ScopedVariable;

struct PipePath : testing::Test {
    test::TemporaryFolder folder;
    ScopedVariable runtime { "XDG_RUNTIME_DIR", folder.path().string() };
};

TEST_F(PipePath, LiesInAFolderOfThisUserAlone)
{
    EXPECT_EQ(pipePath(R"(\\.\pipe\a b)").toStdString(), folder.path().string() + "/core-pipes/a b");
    EXPECT_EQ(fs::status(folder.path() / "core-pipes").permissions(), fs::perms(0700));

    // Where no runtime folder is usable, the one for temporary files serves, apart for each user.
    const ScopedVariable temporary("TMPDIR", folder.path().string());
    for (const auto* unusable : { "", "relative", "/no/such/folder", "/proc/self/status" }) {
        const ScopedVariable none("XDG_RUNTIME_DIR", unusable);
        EXPECT_EQ(pipePath(R"(\\.\pipe\x)").toStdString(),
            fmt::format("{}/core-pipes-{}/x", folder.path().string(), ::geteuid()));
    }
}

TEST_F(PipePath, NoNameLeadsOutOfTheFolder)
{
    using namespace std::string_view_literals;
    for (const auto name : { R"(\\.\pipe\..)"sv, R"(\\.\pipe\.)"sv, R"(\\.\pipe\../x)"sv, R"(\\.\pipe\a/b)"sv,
             "\\\\.\\pipe\\a\0b"sv, R"(\\.\pipe\)"sv, "/tmp/x"sv, ""sv, R"(\\server\pipe\x)"sv })
        EXPECT_THROW(pipePath(name), fn::IOException) << name;
}

TEST_F(PipePath, AFolderThatOthersOwnOrMayEnterIsRefused)
{
    const auto pipes = folder.path() / "core-pipes";
    const auto expectRefused = [&](const char* why) {
        EXPECT_THAT(
            [] { pipePath(R"(\\.\pipe\x)"); }, testing::ThrowsMessage<fn::IOException>(testing::HasSubstr(why)));
        fs::remove(pipes);
    };
    fs::create_directory(pipes);
    fs::permissions(pipes, fs::perms::owner_all | fs::perms::group_read);
    expectRefused("open to other users");
    fs::create_directory_symlink(folder.path(), pipes);
    expectRefused("is no folder");
    if (::geteuid() != 0) return; // Only root can give a folder away.
    fs::create_directory(pipes);
    fs::permissions(pipes, fs::perms::owner_all);
    ASSERT_EQ(::chown(pipes.c_str(), 65534, 65534), 0);
    expectRefused("another user");
}

} // namespace
