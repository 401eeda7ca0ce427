// What can break here: a profile that writes to the wrong place or not at all; one bad file that takes the others with it;
// a message that is formatted for nobody, or never reaches the sink because it asked for too little; a message lost, or a
// profile used after its end, while profiles are reloaded.
#include "core/logging_profile/logging_profile_sink.h"
#include "core/logging_profile/profile_reader.h"
#include "foundation/logging/logging.h"
#include "foundation/system/environment.h"
#include "foundation/system/path_manager.h"
#include "recorder.h"
#include "support/expectations.h"
#include "support/temporary_folder.h"
#include <gmock/gmock.h>
#include <map>
#include <sys/stat.h>
#include <thread>

namespace {

using fn::logging::Category;
using testing::ElementsAre;
using testing::HasSubstr;

class LoggingProfileSink : public testing::Test {
protected:
    LoggingProfileSink() { fn::PathManager::instance().overrideFolder(fn::PathManager::LogFolder, logs()); }
    ~LoggingProfileSink() override { fn::PathManager::instance().overrideFolder(fn::PathManager::LogFolder, {}); }

    fn::String logs() const { return folder.file("logs"); }
    fn::String profiles() const { return folder.file("profiles"); }
    void addProfile(const std::string& name, std::string_view content = "enabled=true\nsimple=true\nthreshold=4\n")
    {
        std::filesystem::create_directories(profiles().toStdString());
        test::writeFile(profiles() + "/" + std::string_view(name), content);
    }
    fn::AutoPtr<core::LoggingProfileSink> load(const char* baseName = "server") const
    {
        auto sink = fn::makeAuto<core::LoggingProfileSink>(baseName);
        sink->reload(profiles());
        return sink;
    }
    static std::string namesOf(const core::LoggingProfileSink& sink)
    {
        std::string names;
        for (const auto& profile : sink.profiles()) names += profile->fileName().toStdString() + "|";
        return names;
    }

    const test::TemporaryFolder folder;
    const Category category { "core" };
};

TEST_F(LoggingProfileSink, NamesFilesAfterProcessAndProfile)
{
    addProfile("debug");
    addProfile("server", "enabled=true\nthreshold=4");
    addProfile("Memory-x");
    addProfile("off.txt", "threshold=7\n");
    const auto sink = load();
    EXPECT_EQ(namesOf(*sink), "debug|off.txt|server|");
    sink->logMessage(category, test::message(4, "a text"));
    sink->logMessage(category, test::message(5, "not wanted"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(logs().toStdString()), {}), 2);
    EXPECT_EQ(test::readFile(logs() + "/server.debug.log"), "a text\r\n");
    const auto formatted = test::readFile(logs() + "/server.log");
    EXPECT_THAT(formatted, HasSubstr("<<<<<<\r\n\r\n"));
    EXPECT_THAT(formatted, HasSubstr("- - a text\r\n"));
    load("")->logMessage(category, test::message(4, "b"));
    EXPECT_EQ(test::readFile(logs() + "/debug.log"), "b\r\n");
}

TEST_F(LoggingProfileSink, KeepsOneConsoleProfileTheUsersOwnBeforeTheCommonOne)
{
    const auto own = "Console." + fn::Environment::userName().toUpperCase().toStdString();
    for (const auto* name : { "console", "console.nobody-else", "console2", "console.old", "a", "z" }) addProfile(name);
    EXPECT_EQ(namesOf(*load()), "a|console|z|");
    addProfile(own, "enabled=true\nsimple=true\nthreshold=2\n");
    const auto sink = load();
    EXPECT_EQ(namesOf(*sink), own + "|a|z|");

    testing::internal::CaptureStderr();
    sink->logMessage(category, test::message(2, "to the console"));
    sink->logMessage(category, test::message(3, "only to files"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "to the console\r\n");
    std::filesystem::remove((profiles() + "/console").toStdString());
    EXPECT_EQ(namesOf(*load()), own + "|a|z|");
}

TEST_F(LoggingProfileSink, LeavesOutWhatItCanNotRead)
{
    const auto fits = "threshold=3\n" + std::string(core::loggingProfileBytes - 12, '#');
    addProfile("good", fits);
    addProfile("huge", fits + "#");
    std::filesystem::create_directory((profiles() + "/a folder").toStdString());
    std::filesystem::create_symlink("nowhere", (profiles() + "/dangling").toStdString());
    ASSERT_EQ(::mkfifo((profiles() + "/pipe").c_str(), 0600), 0);
    const test::ExpectUnhandled unhandled;
    const auto sink = load();
    EXPECT_THAT(unhandled.messages(),
        ElementsAre(HasSubstr("directory"), HasSubstr("No such file"), HasSubstr("longer than allowed"),
            HasSubstr("Invalid argument")));
    EXPECT_EQ(namesOf(*sink), "good|");
    sink->reload(folder.file("missing"));
    EXPECT_EQ(unhandled.messages().size(), 5);
    EXPECT_EQ(namesOf(*sink), "good|") << "as before";
}

TEST_F(LoggingProfileSink, AsksForExactlyTheMessagesThatSomeProfileTakesByTheNearestThresholdAbove)
{
    addProfile("first", "enabled=true\nthreshold=2\nthreshold.A=5\nthreshold.a.b=1\nthreshold.a.=8\n");
    addProfile("loud", "enabled=true\nverbose=true\nthreshold=3\nthreshold.a.b.C=7\nthreshold.a.d=-1\n");
    addProfile("off", "threshold=6\nthreshold.a=3\nthreshold.a.b=4\n");
    const auto sink = load();
    EXPECT_EQ(sink->maxRootThreshold(), 6);
    std::string thresholds;
    const auto highest = sink->maxThresholdMap();
    for (const auto& [name, priority] : std::map<fn::String, int>(highest.begin(), highest.end()))
        thresholds += fmt::format("{}={} ", name, priority);
    EXPECT_EQ(thresholds, "a=5 a.=8 a.b=4 a.b.c=7 a.d=-1 ");
    const auto recorder = fn::makeAuto<test::RecordingSink>();
    for (const auto& profile : sink->profiles()) profile->setSink(recorder);
    const Category a("a"), ab("a.B", &a), abc("a.B.c", &ab), ad("a.d", &a), other("ab");
    struct Row {
        const Category& category;
        int quiet, loud; // The highest priority that is taken, without the verbose profiles and with them.
    };
    for (const auto& [category, quiet, loud] :
        { Row { a, 5, 5 }, { ab, 1, 3 }, { abc, 1, 7 }, { ad, 5, 5 }, { other, 2, 3 } }) {
        for (const bool isLoud : { false, true }) {
            sink->setAllowVerboseLogging(isLoud);
            const int expected = isLoud ? loud : quiet;
            EXPECT_EQ(sink->threshold(category), expected) << category.name();
            for (int priority = 1; priority <= 8; ++priority) {
                recorder->texts.clear();
                sink->logMessage(category, test::message(priority));
                EXPECT_EQ(!recorder->texts.empty(), priority <= expected) << category.name() << " at " << priority;
            }
        }
    }
}

TEST_F(LoggingProfileSink, ReadsTheProfilesThatComeAlong)
{
    const auto sink = fn::makeAuto<core::LoggingProfileSink>("skyfold");
    sink->reload(fn::PathManager::instance().getPath(fn::PathManager::ResourceFolder, "logging_profiles", false));
    EXPECT_EQ(sink->threshold(category), 4);
    sink->setAllowVerboseLogging(true);
    EXPECT_EQ(sink->threshold(category), 7);
}

TEST_F(LoggingProfileSink, LosesNothingWhileProfilesAreReloadedAndThenCostsNothing)
{
    constexpr int threads = 4;
    constexpr int messagesEach = 1000;
    addProfile("a");
    addProfile("b", "enabled=true\nverbose=true\nthreshold=7\nthreshold.profiles=5\nfilter=x\n");
    const auto sink = load();
    auto& manager = fn::logging::CategoryManager::instance();
    manager.addSink(sink);
    const auto& used = manager.getCategory("profiles.reloaded");
    std::atomic<int> running { threads };
    std::vector<std::jthread> writers;
    for (int t = 0; t < threads; ++t) {
        writers.emplace_back([&used, &running] {
            for (int i = 0; i < messagesEach; ++i) FN_LOG_TO(used, 4, fn::logging::Tag(), "libs/test", "{}", i);
            --running;
        });
    }
    for (int i = 0; i < 20 || running > 0; ++i) {
        sink->reload(profiles());
        sink->setAllowVerboseLogging(i % 2 == 0);
    }
    writers.clear();
    const auto written = test::readFile(logs() + "/server.a.log");
    EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), threads * messagesEach);

    const auto highestWanted = [&] {
        int priority = 8;
        while (priority > 0 && !used.wants(priority)) --priority;
        return priority;
    };
    sink->setAllowVerboseLogging(true);
    EXPECT_EQ(highestWanted(), 5);
    sink->setAllowVerboseLogging(false);
    EXPECT_EQ(highestWanted(), 4);
    addProfile("a", "enabled=true\nthreshold=6\n");
    sink->reload(profiles());
    EXPECT_EQ(highestWanted(), 6);
    manager.removeSink(sink);
}
} // namespace
