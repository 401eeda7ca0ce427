// What can break here: the wrong application, an instance where there is none, an id that is not kept, a failing file that
// takes its caller down. The instance belongs to the process, so each case about it runs in a process of its own.
#include "core/app_info.h"
#include "foundation/exceptions.h"
#include "foundation/system/environment.h"
#include "foundation/system/path_manager.h"
#include "platform/operating_system_version.h"
#include "support/expectations.h"
#include "support/temporary_folder.h"
#include <gtest/gtest.h>

namespace {

using core::AppInfo;

/// Runs the case in a child process and fails where an expectation failed there.
#define IN_A_PROCESS_OF_ITS_OWN(...) \
    EXPECT_EXIT( \
        { \
            __VA_ARGS__; \
            std::_Exit(testing::Test::HasFailure() ? 1 : 0); \
        }, \
        testing::ExitedWithCode(0), "")

void expectNoInstance()
{
    const test::ExpectAssertions assertions;
    EXPECT_THROW(AppInfo::instance(), fn::RuntimeException);
    EXPECT_EQ(assertions.reports().size(), 1u);
}

TEST(AppInfo, IsWhatTheEnvironmentSaysAtTheFirstCall)
{
    IN_A_PROCESS_OF_ITS_OWN({
        fn::Environment::unset("ManagerAppType");
        expectNoInstance();
        fn::Environment::set("ManagerAppType", "2");
        expectNoInstance();
        // What came too early has not settled anything.
        AppInfo::initialize(AppInfo::App::Lumenhall);
        EXPECT_EQ(fn::Environment::get("ManagerAppType"), fn::String("1"));
        auto& info = AppInfo::instance();
        EXPECT_EQ(info.applicationDisplayName(), "Lumen Hall");
        AppInfo::initialize(AppInfo::App::Skyfold);
        EXPECT_EQ(&AppInfo::instance(), &info);
        EXPECT_EQ(info.applicationShortName(), "Lumenhall");
    });
    IN_A_PROCESS_OF_ITS_OWN({
        AppInfo::initialize(AppInfo::App::Skyfold);
        EXPECT_EQ(AppInfo::instance().applicationShortName(), "Skyfold");
    });
}

TEST(AppInfo, DescribesTheOperatingSystem)
{
    const std::pair<const char16_t*, const char*> rows[] = { { u"", "6.10" },
        { u" Service Pack 1 ", "6.10 (Service Pack 1)" }, { u"  ", "6.10" }, { nullptr, "?" } };
    for (const auto& [servicePack, expected] : rows) {
        const platform::ScopedOperatingSystemVersion fake([&](platform::OSVERSIONINFOEXW& version) {
            EXPECT_EQ(version.dwOSVersionInfoSize, 284u);
            version.dwMajorVersion = 6;
            version.dwMinorVersion = 10;
            if (servicePack) std::u16string_view(servicePack).copy(version.szCSDVersion, 127);
            return servicePack != nullptr;
        });
        EXPECT_EQ(AppInfo().operatingSystemVersion(), expected);
    }
}

class AppInfoInstallation : public testing::Test {
protected:
    AppInfoInstallation() { useFolder(folder.path().string()); }
    ~AppInfoInstallation() override { useFolder(std::nullopt); }
    static void useFolder(const std::optional<fn::String>& path)
    {
        fn::PathManager::instance().overrideFolder(fn::PathManager::PreferencesFolder, path);
    }

    const test::TemporaryFolder folder;
    const fn::String path = folder.file("Instance.prefs");
};

TEST_F(AppInfoInstallation, IdIsMadeOnceAndKept)
{
    AppInfo info;
    test::writeFile(path, "\"instanceId\": ");
    EXPECT_EQ(info.instanceId(), "") << "The file cannot be read.";
    std::filesystem::remove(path.toStdString()); // The next call tries again.
    const auto id = info.instanceId();
    EXPECT_EQ(id.size(), 36u);
    EXPECT_EQ(test::readFile(path), "\"instanceId\": \"" + id.toStdString() + "\"\r\n");
    std::filesystem::remove(path.toStdString());
    EXPECT_EQ(info.instanceId(), id); // Known by now.
    EXPECT_FALSE(std::filesystem::exists(path.toStdString()));

    test::writeFile(path, "\"instanceId\": \"kept\", \"other\": 1");
    EXPECT_EQ(AppInfo().instanceId(), "kept");
    test::writeFile(path, "\"instanceId\": \"\", \"other\": 1");
    EXPECT_EQ(AppInfo().instanceId().size(), 36u);
    EXPECT_NE(test::readFile(path).find("\"other\": 1"), std::string::npos);
}

TEST_F(AppInfoInstallation, AgeCountsFromTheEarlierTimeOfTheFile)
{
    EXPECT_EQ(AppInfo().installationDuration(), fn::Duration());
    test::writeFile(path, "");
    // Changed an hour before it was made, as far as the file system knows.
    const auto changed = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
    std::filesystem::last_write_time(path.toStdString(), changed);
    const auto age = AppInfo().installationDuration();
    EXPECT_GE(age, fn::Duration::seconds(3600));
    EXPECT_LT(age, fn::Duration::seconds(4000));
}

} // namespace
