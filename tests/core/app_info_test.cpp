// What can break here: an id that is not kept, a failing file that takes its caller down, and two applications that meet.
#include "core/services/app_info.h"
#include "foundation/system/environment.h"
#include "foundation/system/path_manager.h"
#include "support/scoped_variable.h"
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

TEST(AppInfo, AnIdentityIsHandedOnAndOneThatIsNoneRefused)
{
    const test::ScopedVariable family("ManagerAppType", "1");
    const test::ScopedVariable variable("CORE_APPLICATION", "");
    const core::AppIdentity thumbs { "thumbs", "Thumbs; and more", "1.0" };
    EXPECT_EQ(core::AppIdentity::fromText(thumbs.toText()), thumbs);
    AppInfo::initialize(thumbs);
    EXPECT_EQ(fn::Environment::get("CORE_APPLICATION"), "thumbs;Thumbs; and more;1.0");
    EXPECT_EQ(fn::Environment::get("ManagerAppType"), std::nullopt) << "Another application's parent may have set it.";
    AppInfo::initialize(AppInfo::identityOf(AppInfo::App::Lumenhall));
    EXPECT_EQ(fn::Environment::get("ManagerAppType"), "1");

    const std::string longText(65, 'a');
    const core::AppIdentity wrong[] = {
        { "", "Thumbs", "1" },
        { "Thumbs", "Thumbs", "1" },
        { "1st", "Thumbs", "1" },
        { "a/../b", "Thumbs", "1" },
        { "th.umbs", "Thumbs", "1" },
        { std::string(33, 'a'), "Thumbs", "1" },
        { "thumbs", "", "1" },
        { "thumbs", "../Thumbs", "1" },
        { "thumbs", "Thu\nmbs", "1" },
        { "thumbs", "\xff", "1" },
        { "thumbs", longText, "1" },
        { "thumbs", "Thumbs", "" },
        { "thumbs", "Thumbs", "1;2" },
        { "thumbs", "Thumbs", "1 2" },
        { "skyfold", "Thumbs", "1" },
    };
    for (const auto& identity : wrong)
        EXPECT_THROW(AppInfo::initialize(identity), fn::RuntimeException) << identity.toText().toStdString();
    for (const auto* text : { "", "thumbs", "thumbs;1", ";Thumbs;1", "thumbs;;1" })
        EXPECT_THROW(core::AppIdentity::fromText(text), fn::RuntimeException) << text;
    EXPECT_EQ(fn::Environment::get("ManagerAppType"), "1") << "What is refused changes nothing.";
}

} // namespace
