// What can break here: the wrong application, an instance where there is none, an id that is not kept, a failing file that
// takes its caller down.
#include "base/exceptions.h"
#include "core/services/app_info.h"
#include "foundation/system/environment.h"
#include "foundation/system/path_manager.h"
#include "support/expectations.h"
#include "support/forked_child.h"
#include "support/temporary_folder.h"
#include <gtest/gtest.h>

namespace {

using core::AppInfo;

TEST(AppInfo, IsWhatTheEnvironmentSaysAtTheFirstCall)
{
    test::ForkedChild process([] { // The instance is the process's.
        const test::ExpectAssertions assertions;
        fn::Environment::set("ManagerAppType", "2");
        EXPECT_THROW(AppInfo::instance(), fn::RuntimeException);
        EXPECT_EQ(assertions.reports().size(), 1u) << "what comes too early settles nothing";
        AppInfo::initialize(AppInfo::App::Lumenhall);
        auto& info = AppInfo::instance();
        EXPECT_EQ(info.applicationDisplayName(), "Lumen Hall");
        AppInfo::initialize(AppInfo::App::Skyfold);
        EXPECT_EQ(&AppInfo::instance(), &info);
        return !testing::Test::HasFailure();
    });
    EXPECT_TRUE(process.succeeds());
}

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
