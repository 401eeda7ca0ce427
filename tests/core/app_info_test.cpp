// What can break here: an id that is not kept, a failing file that takes its caller down.
#include "core/services/app_info.h"
#include "foundation/system/path_manager.h"
#include "support/temporary_folder.h"
#include <gtest/gtest.h>

namespace {

using core::AppInfo;

TEST(AppInfo, IdIsMadeOnceAndKept)
{
    const test::TemporaryFolder folder;
    const auto path = folder.file("Instance.prefs");
    fn::PathManager::instance().overrideFolder(fn::PathManager::PreferencesFolder, folder.path().string());
    AppInfo info;
    test::writeFile(path, "\"instanceId\": ");
    EXPECT_EQ(info.instanceId(), "") << "The file cannot be read.";
    std::filesystem::remove(path.toStdString()); // The next call tries again.
    const auto id = info.instanceId();
    EXPECT_EQ(id.size(), 36u);
    EXPECT_EQ(AppInfo().instanceId(), id);
    std::filesystem::remove(path.toStdString());
    EXPECT_EQ(info.instanceId(), id); // Known by now.
    EXPECT_FALSE(std::filesystem::exists(path.toStdString()));
    test::writeFile(path, "\"instanceId\": \"\", \"other\": 1");
    EXPECT_EQ(AppInfo().instanceId().size(), 36u);
    EXPECT_NE(test::readFile(path).find("\"other\": 1"), std::string::npos);
    fn::PathManager::instance().overrideFolder(fn::PathManager::PreferencesFolder, {});
}

} // namespace
