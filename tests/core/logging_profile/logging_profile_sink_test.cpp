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
#include <random>
#include <sys/stat.h>
#include <thread>

namespace {

using fn::logging::Category;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

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
    static std::vector<std::string> namesOf(const core::LoggingProfileSink& sink)
    {
        std::vector<std::string> names;
        for (const auto& profile : sink.profiles()) names.push_back(profile->fileName().toStdString());
        return names;
    }
    std::vector<std::string> logFiles() const
    {
        std::vector<std::string> names;
        if (!std::filesystem::exists(logs().toStdString())) return names;
        for (const auto& entry : std::filesystem::directory_iterator(logs().toStdString())) {
            names.push_back(entry.path().filename().string());
        }
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
    EXPECT_THAT(namesOf(*sink), ElementsAre("debug", "off.txt", "server"));
    sink->logMessage(category, test::message(4, "a text"));
    sink->logMessage(category, test::message(5, "not wanted"));
    EXPECT_THAT(logFiles(), UnorderedElementsAre("server.debug.log", "server.log"));
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
    EXPECT_THAT(namesOf(*load()), ElementsAre("a", "console", "z"));
    addProfile(own, "enabled=true\nsimple=true\nthreshold=2\n");
    const auto sink = load();
    EXPECT_THAT(namesOf(*sink), ElementsAre(own, "a", "z"));

    testing::internal::CaptureStderr();
    sink->logMessage(category, test::message(2, "to the console"));
    sink->logMessage(category, test::message(3, "only to files"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "to the console\r\n");
    std::filesystem::remove((profiles() + "/console").toStdString());
    EXPECT_THAT(namesOf(*load()), ElementsAre(own, "a", "z"));
}

TEST_F(LoggingProfileSink, LeavesOutWhatItCanNotRead)
{
    addProfile("good");
    addProfile("huge", std::string(core::loggingProfileBytes + 1, '#'));
    std::filesystem::create_directory((profiles() + "/a folder").toStdString());
    std::filesystem::create_symlink("nowhere", (profiles() + "/dangling").toStdString());
    ASSERT_EQ(::mkfifo((profiles() + "/pipe").c_str(), 0600), 0);
    fn::AutoPtr<core::LoggingProfileSink> sink;
    {
        const test::ExpectUnhandled unhandled;
        sink = load();
        EXPECT_THAT(unhandled.messages(),
            ElementsAre(HasSubstr("directory"), HasSubstr("No such file"), HasSubstr("longer than allowed"),
                HasSubstr("Invalid argument")));
    }
    EXPECT_THAT(namesOf(*sink), ElementsAre("good"));
    const test::ExpectUnhandled unhandled;
    sink->reload(folder.file("missing"));
    EXPECT_EQ(unhandled.messages().size(), 1);
    EXPECT_THAT(namesOf(*sink), ElementsAre("good")) << "as before";
}

TEST_F(LoggingProfileSink, KnowsTheHighestThresholdsOfAllProfiles)
{
    EXPECT_EQ(fn::makeAuto<core::LoggingProfileSink>("x")->maxRootThreshold(), 0);
    addProfile("a", "threshold=3\nthreshold.ipc=5\nthreshold.core=1\n");
    addProfile("b", "enabled=true\nthreshold=2\nthreshold.IPC=4\nthreshold.core=2\nthreshold.z=-1\n");
    const auto sink = load();
    EXPECT_EQ(sink->maxRootThreshold(), 3);
    using fn::logging::Priority;
    EXPECT_THAT(sink->maxThresholdMap(),
        UnorderedElementsAre(
            std::pair("ipc", Priority(5)), std::pair("core", Priority(2)), std::pair("z", Priority(-1))));
    std::filesystem::remove_all(profiles().toStdString());
    addProfile("a", "threshold=1\n");
    sink->reload(profiles());
    EXPECT_EQ(sink->maxRootThreshold(), 1);
    EXPECT_THAT(sink->maxThresholdMap(), IsEmpty());
}

TEST_F(LoggingProfileSink, AsksForExactlyTheMessagesThatSomeProfileTakesByTheNearestThresholdAbove)
{
    std::vector<std::unique_ptr<Category>> categories;
    for (const auto& [name, parent] : std::initializer_list<std::pair<const char*, int>> {
             { "a", -1 }, { "a.B", 0 }, { "a.B.c", 1 }, { "a.d", 0 }, { "ab", -1 } }) {
        categories.push_back(std::make_unique<Category>(
            name, parent < 0 ? nullptr : categories[static_cast<std::size_t>(parent)].get()));
    }
    struct Model {
        bool isEnabled, isVerbose;
        std::map<fn::String, int> thresholds; // By category in lower case; "" is the root's.

        int threshold(const Category* category) const
        {
            while (category && !thresholds.contains(category->name().toLowerCase())) category = category->parent();
            return thresholds.at(category ? category->name().toLowerCase() : fn::String());
        }
    };
    std::mt19937 random(31);
    const auto below = [&random](unsigned bound) { return static_cast<int>(random() % bound); };
    for (int round = 0; round < 50; ++round) {
        std::filesystem::remove_all(profiles().toStdString());
        std::vector<Model> models;
        for (const auto* name : { "p", "q", "r" }) {
            auto& model = models.emplace_back(below(3) > 0, below(2) > 0);
            const int root = model.thresholds[""] = below(7) - 1;
            auto text = fmt::format("enabled={}\nverbose={}\nthreshold={}\n", model.isEnabled, model.isVerbose, root);
            for (const auto* key : { "A", "a.b", "a.b.C", "a.d", "a.d.e", "a." }) {
                if (below(3) > 0) continue;
                const int priority = model.thresholds[fn::String(key).toLowerCase()] = below(12) - 1;
                text += fmt::format("threshold.{}={}\n", key, priority);
            }
            addProfile(name, text);
        }
        const auto sink = load();
        const auto recorder = fn::makeAuto<test::RecordingSink>();
        for (const auto& profile : sink->profiles()) profile->setSink(recorder);
        for (const bool allowed : { false, true }) {
            sink->setAllowVerboseLogging(allowed);
            for (const auto& each : categories) {
                int expected = 0;
                for (const auto& model : models) {
                    if (model.isEnabled && (allowed || !model.isVerbose))
                        expected = std::max(expected, model.threshold(each.get()));
                }
                EXPECT_EQ(sink->threshold(*each), expected) << each->name() << " in round " << round;
                for (int priority = 1; priority <= 8; ++priority) {
                    recorder->texts.clear();
                    sink->logMessage(*each, test::message(priority));
                    EXPECT_EQ(!recorder->texts.empty(), priority <= expected) << each->name() << " in round " << round;
                }
            }
        }
    }
}

TEST_F(LoggingProfileSink, CostsNothingForMessagesThatNoProfileTakesNow)
{
    addProfile("a", "enabled=true\nthreshold=2\n");
    addProfile("loud", "enabled=true\nsimple=true\nverbose=true\nthreshold=6\n");
    const auto sink = load();
    auto& manager = fn::logging::CategoryManager::instance();
    manager.addSink(sink);
    const auto& used = manager.getCategory("profiles.used");
    EXPECT_EQ(std::pair(used.wants(2), used.wants(3)), std::pair(true, false));
    sink->setAllowVerboseLogging(true);
    EXPECT_EQ(std::pair(used.wants(6), used.wants(7)), std::pair(true, false));
    FN_LOG_TO(used, 6, fn::logging::Tag(), "libs/test", "loud");
    sink->setAllowVerboseLogging(false);
    EXPECT_EQ(std::pair(used.wants(2), used.wants(3)), std::pair(true, false));
    addProfile("a", "enabled=true\nthreshold=5\n");
    sink->reload(profiles());
    EXPECT_EQ(std::pair(used.wants(5), used.wants(6)), std::pair(true, false));
    manager.removeSink(sink);
    EXPECT_EQ(test::readFile(logs() + "/server.loud.log"), "loud\r\n");
}

TEST_F(LoggingProfileSink, ReadsTheProfilesThatComeAlong)
{
    const auto sink = fn::makeAuto<core::LoggingProfileSink>("skyfold");
    sink->reload(fn::PathManager::instance().getPath(fn::PathManager::ResourceFolder, "logging_profiles", false));
    std::vector<std::string> used;
    for (const auto& profile : sink->profiles()) {
        EXPECT_FALSE(profile->name().empty() || profile->description().empty()) << profile->fileName();
        if (profile->enabled() && !profile->verbose()) used.push_back(profile->fileName().toStdString());
    }
    EXPECT_THAT(used, ElementsAre("console", "default"));
    EXPECT_EQ(sink->threshold(category), 4);
    sink->setAllowVerboseLogging(true);
    EXPECT_EQ(sink->threshold(category), 7);
}

TEST_F(LoggingProfileSink, LosesNothingWhileProfilesAreReloaded)
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
    manager.removeSink(sink);
    const auto written = test::readFile(logs() + "/server.a.log");
    EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), threads * messagesEach);
}

} // namespace
