// What can break here: a failure of loading that nobody sees; verbose logging that was switched before this process
// listened, or by something that is no switch. The sink is the process's: one test makes it.
#include "core/logging_profile/logging_profiles.h"
#include "foundation/logging/logging.h"
#include "foundation/message_bus.h"
#include "foundation/system/path_manager.h"
#include "support/expectations.h"
#include "support/temporary_folder.h"
#include <gmock/gmock.h>

namespace {

TEST(LoggingProfiles, ServeTheProcessAndFollowTheBus)
{
    static const test::TemporaryFolder folder; // As long as the sink.
    auto& paths = fn::PathManager::instance();
    paths.overrideFolder(fn::PathManager::ResourceFolder, folder.file(""));
    paths.overrideFolder(fn::PathManager::LogFolder, folder.file("logs"));
    std::filesystem::create_directories(folder.path() / "logging_profiles" / "folder");
    test::writeFile(folder.file("logging_profiles/loud"), "enabled=true\nsimple=true\nverbose=true\nthreshold=7\n");
    const auto& category = fn::logging::CategoryManager::instance().getCategory("profiles.process");
    auto& bus = fn::MessageBus::instance();
    core::setEnableVerboseLogging(true);

    testing::internal::CaptureStderr();
    const test::ExpectUnhandled unhandled;
    const auto sink = core::initLoggingProfiles("process");
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
        testing::ContainsRegex("^Unhandled exception in .*: FileException: .*\n$"));
    EXPECT_EQ(unhandled.messages().size(), 1) << "the folder is no profile";
    EXPECT_EQ(core::initLoggingProfiles("other"), sink);
    EXPECT_TRUE(sink->allowVerboseLogging()) << "switched before";
    FN_LOG_TO(category, 7, fn::logging::Tag(), "libs/test", "one");
    EXPECT_EQ(test::readFile(folder.file("logs/process.loud.log")), "one\r\n");

    core::setEnableVerboseLogging(false);
    EXPECT_FALSE(category.wants(1));
    const fn::String switchName = "com.tidewerk.logging-profile.allow-verbose-logging";
    for (const auto& name :
        { fn::String("com.tidewerk.logging-profile"), switchName.substring(0, 34), switchName + ".x" })
        bus.postMessage(name, true);
    EXPECT_FALSE(sink->allowVerboseLogging()) << "not for us";
    bus.postMessage(switchName, "yes");
    EXPECT_TRUE(sink->allowVerboseLogging());
    bus.postMessage(switchName, fn::Value(fn::Value::MAP));
    EXPECT_EQ(unhandled.messages().size(), 2);
    EXPECT_TRUE(sink->allowVerboseLogging());
    core::setEnableVerboseLogging(false);
    paths.overrideFolder(fn::PathManager::ResourceFolder, {});
}

} // namespace
