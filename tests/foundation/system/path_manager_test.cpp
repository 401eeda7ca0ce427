// What can break here: a folder that others can read, a file made a folder, a build tree taken for an installation.
#include "foundation/exceptions.h"
#include "foundation/io/file.h"
#include "foundation/system/path_manager.h"
#include "support/temporary_folder.h"
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

using fn::File;
using fn::PathManager;

class PathManagerTest : public testing::Test {
protected:
    ~PathManagerTest() override
    {
        for (const int type : { 0, 3, 7, 8, 9 }) paths.overrideFolder(type, std::nullopt);
        paths.setApplicationName(paths.namePrefix());
    }

    std::uint32_t modeOf(std::string_view name) const { return File(folder.file(name)).info().mode; }

    const test::TemporaryFolder folder;
    PathManager& paths = PathManager::instance();
};

TEST_F(PathManagerTest, FindsTheProgramsOfTheBuildTreeBesideTheTests)
{
    EXPECT_EQ(std::filesystem::weakly_canonical(paths.getPath(0, "../modules", false).toStdString()),
        std::filesystem::weakly_canonical(TEST_BINARY_DIR "/modules"));
    EXPECT_FALSE(paths.hasInstalledLayout());
    EXPECT_TRUE(paths.getPath(8, "logging_profiles", false).endsWith("/resources/logging_profiles"));
    paths.setApplicationName("lumenhall");
    EXPECT_TRUE(paths.getPath(9, "x.log", false).endsWith("/lumenhall/logs/x.log"));
    for (const int type : { -1, 1, 6, 10 }) EXPECT_THROW(paths.getPath(type, "x", false), fn::RangeException);
}

TEST_F(PathManagerTest, TellsAnInstallationByItsMarkerAlone)
{
    paths.overrideFolder(0, folder.file("root/bin"));
    std::filesystem::create_directories(folder.path() / "root/bin");
    std::filesystem::create_directories(folder.path() / "root/modules");
    EXPECT_FALSE(paths.hasInstalledLayout());
    test::writeFile(folder.file("root/skyfold.installed"), "");
    EXPECT_TRUE(paths.hasInstalledLayout());
    EXPECT_TRUE(
        std::filesystem::equivalent(paths.getPath(8, "modules", false).toStdString(), folder.path() / "root/modules"));
}

TEST_F(PathManagerTest, MakesTheUsersFoldersPrivateWhateverTheMask)
{
    const auto mask = ::umask(0);
    paths.overrideFolder(7, folder.file("config/app"));
    paths.overrideFolder(9, folder.file("state/app/logs"));

    EXPECT_EQ(paths.getPath(7, "sub/Passwords.prefs", false), folder.file("config/app/sub/Passwords.prefs"));
    EXPECT_EQ(modeOf("config/app"), 0700u); // Nobody asked; still the first writer must find it private.
    EXPECT_FALSE(File(folder.file("config/app/sub")).exists());
    paths.getPath(7, "sub/Passwords.prefs", true);
    EXPECT_EQ(modeOf("config/app/sub"), 0700u);

    EXPECT_EQ(paths.getPath(9, false), folder.file("state/app/logs"));
    EXPECT_FALSE(File(folder.file("state")).exists());
    paths.getPath(9, true);
    EXPECT_EQ(modeOf("state/app/logs"), 0700u);
    ::umask(mask);
}

TEST_F(PathManagerTest, ReportsAFolderThatCannotBeMadeToThoseWhoAskForIt)
{
    test::writeFile(folder.file("file"), "");
    paths.overrideFolder(7, folder.file("file/app"));
    EXPECT_EQ(paths.getPath(7, "Instance.prefs", false), folder.file("file/app/Instance.prefs"));
    EXPECT_THROW(paths.getPath(7, "Instance.prefs", true), fn::FileException);
}

} // namespace
