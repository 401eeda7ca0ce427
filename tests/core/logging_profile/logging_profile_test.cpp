// What can break here: a line of a profile that is read otherwise than its author means it; a profile that writes to the wrong
// place, takes what it does not want or misses what it does; one bad file that takes the others with it; a message lost, or a
// profile used after its end, while profiles are reloaded; verbose logging that is switched before this process listens.
#include "core/services/logging_profile/detail/profile_reader.h"
#include "core/services/logging_profile/logging_profiles.h"
#include "core/services/logging_profile/simple_sink.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/logging/logging.h"
#include "foundation/message_bus.h"
#include "foundation/system/path_manager.h"
#include "recorder.h"
#include "support/expectations.h"
#include "support/temporary_folder.h"
#include <gmock/gmock.h>
#include <map>
#include <sys/stat.h>

namespace {

using core::LoggingProfile;
using fn::PathManager;
using fn::logging::Category;
using testing::ElementsAre;
using testing::HasSubstr;

fn::AutoPtr<LoggingProfile> read(std::string_view text)
{
    auto profile = fn::makeAuto<LoggingProfile>();
    fn::MemoryInputStream stream(text.data(), text.size());
    core::readLoggingProfile(stream, *profile);
    return profile;
}

std::string describe(const LoggingProfile::ThresholdMap& thresholds)
{
    std::string text;
    for (const auto& [category, priority] : std::map<fn::String, int>(thresholds.begin(), thresholds.end()))
        text += fmt::format("{}={} ", category, priority);
    return text;
}

// Every setting that is not as in a new profile, in a fixed order.
std::string describe(const LoggingProfile& profile)
{
    std::string text;
    const auto add = [&](const char* key, const auto& value) { text += fmt::format("{}[{}]", key, value); };
    if (!profile.name().empty()) add("name", profile.name());
    if (!profile.description().empty()) add("description", profile.description());
    if (profile.enabled()) text += "enabled ";
    if (profile.simple()) text += "simple ";
    if (profile.verbose()) text += "verbose ";
    if (profile.rootThreshold() != 0) add("root", static_cast<int>(profile.rootThreshold()));
    text += describe(profile.thresholdMap());
    for (const auto& tag : profile.allowedTags()) add("allowed", tag);
    for (const auto& tag : profile.forbiddenTags()) add("forbidden", tag);
    for (const auto& filter : profile.filters()) add("filter", filter);
    return text;
}

TEST(LoggingProfile, IsReadLineByLine)
{
    const std::pair<std::string_view, std::string> rows[] = {
        { "name=A\ndescription= of b \nenabled=true\r\nsimple=YES\nverbose=1",
            "name[A]description[ of b ]enabled simple verbose " },
        { "NAME=Mixed=Case\nthreshold=4\nthreshold=5\nenabled=on\nenabled=off", "name[Mixed=Case]root[5]" },
        { "name=a # b # c\n#name=d\n # x\n\n=e\nname\n#", "name[a ]" },
        { "threshold= 4 \nthreshold.IPC.Worker=7\nthreshold.a=-1\nthreshold.b=", "root[4]a=-1 b=0 ipc.worker=7 " },
        { "allowedtags=a, b\nAllowedTags=c\nforbiddentags=d,,e",
            "allowed[a]allowed[b]allowed[c]forbidden[d]forbidden[]forbidden[e]" },
        { "allowedtags=\nforbiddentags= ", "forbidden[]" },
        { "filter=b\nfilter=a=1, 2\nfilter=b\nfilter=", "filter[]filter[a=1, 2]filter[b]" },
        { "\xEF\xBB\xBFname=a\n\xEF\xBB\xBFname=b", "name[a]" }, // Some editors begin a text so.
    };
    for (const auto& [text, expected] : rows) EXPECT_EQ(describe(*read(text)), expected) << text;
}

TEST(LoggingProfile, ForbidsTagsBeforeItAllowsThemAndFiltersTextsButNoErrors)
{
    const auto tags = "allowedtags=yes,both\nforbiddentags=both";
    const auto filters = "filter=text\nfilter=costarring"; // "liquid" has the hash of the latter.
    const std::tuple<const char*, int, const char*, const char*, bool> rows[] = {
        { "forbiddentags=no", 4, "x", "any", true }, { "forbiddentags=no", 1, "x", "no", false },
        { tags, 4, "x", "yes", true }, { tags, 4, "x", "Yes", false }, { tags, 1, "x", "both", false },
        { tags, 1, "x", "", false }, { filters, 1, "text", "", true }, { filters, 2, "text", "", false },
        { filters, 2, "texts", "", true }, { filters, 2, "costarring", "", false }, { filters, 2, "liquid", "", true }
    };
    for (const auto& [settings, priority, text, tag, isTaken] : rows) {
        const auto target = fn::makeAuto<test::RecordingTarget>();
        const auto profile = read(std::string("threshold=4\n") + settings);
        profile->setSink(fn::makeAuto<core::SimpleSink>(target));
        profile->log(Category("core"), test::message(priority, text, tag));
        EXPECT_EQ(target->entries.size(), isTaken) << settings << ": " << priority << text << tag;
    }
}

class LoggingProfileSink : public testing::Test {
protected:
    LoggingProfileSink() { PathManager::instance().overrideFolder(PathManager::LogFolder, logs()); }
    ~LoggingProfileSink() override { PathManager::instance().overrideFolder(PathManager::LogFolder, {}); }

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
    EXPECT_THAT(test::readFile(logs() + "/server.log"), testing::EndsWith("- - a text\r\n"));
}

TEST_F(LoggingProfileSink, LeavesOutWhatItCanNotRead)
{
    const auto fits = "threshold=3\n" + std::string(core::loggingProfileBytes - 12, '#');
    addProfile("good", fits);
    addProfile("huge", fits + "#");
    std::filesystem::create_directory((profiles() + "/a folder").toStdString());
    ASSERT_EQ(::mkfifo((profiles() + "/pipe").c_str(), 0600), 0);
    const test::ExpectUnhandled unhandled;
    const auto sink = load();
    EXPECT_THAT(unhandled.messages(),
        ElementsAre(HasSubstr("directory"), HasSubstr("longer than allowed"), HasSubstr("Invalid argument")));
    sink->reload(folder.file("missing"));
    EXPECT_EQ(unhandled.messages().size(), 4);
    EXPECT_EQ(namesOf(*sink), "good|") << "as before";
}

TEST_F(LoggingProfileSink, AsksForExactlyTheMessagesThatSomeProfileTakesByTheNearestThresholdAbove)
{
    addProfile("first", "enabled=true\nthreshold=2\nthreshold.A=5\nthreshold.a.b=1\nthreshold.a.=8\n");
    addProfile("loud", "enabled=true\nverbose=true\nthreshold=3\nthreshold.a.b.C=7\nthreshold.a.d=-1\n");
    addProfile("off", "threshold=6\nthreshold.a=3\nthreshold.a.b=4\n");
    const auto sink = load();
    EXPECT_EQ(sink->maxRootThreshold(), 6);
    EXPECT_EQ(describe(sink->maxThresholdMap()), "a=5 a.=8 a.b=4 a.b.c=7 a.d=-1 ");
    const auto target = fn::makeAuto<test::RecordingTarget>();
    for (const auto& profile : sink->profiles()) profile->setSink(fn::makeAuto<core::SimpleSink>(target));
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
                target->entries.clear();
                sink->logMessage(category, test::message(priority));
                EXPECT_EQ(!target->entries.empty(), priority <= expected) << category.name() << " at " << priority;
            }
        }
    }
}

// The sink is the process's: one test makes it.
TEST(LoggingProfiles, ServeTheProcessAndFollowTheBus)
{
    static const test::TemporaryFolder folder; // As long as the sink.
    auto& paths = PathManager::instance();
    paths.overrideFolder(PathManager::ResourceFolder, folder.file(""));
    paths.overrideFolder(PathManager::LogFolder, folder.file("logs"));
    std::filesystem::create_directory(folder.path() / "logging_profiles");
    test::writeFile(folder.file("logging_profiles/loud"), "enabled=true\nsimple=true\nverbose=true\nthreshold=7\n");
    const auto& category = fn::logging::CategoryManager::instance().getCategory("profiles.process");
    core::setEnableVerboseLogging(true);

    const auto sink = core::initLoggingProfiles("process");
    EXPECT_TRUE(sink->allowVerboseLogging()) << "switched before";
    FN_LOG_TO(category, 7, fn::logging::Tag(), "libs/test", "one");
    EXPECT_EQ(test::readFile(folder.file("logs/process.loud.log")), "one\r\n");

    core::setEnableVerboseLogging(false);
    EXPECT_FALSE(category.wants(1));
    fn::MessageBus::instance().postMessage("com.tidewerk.logging-profile.allow-verbose-logging", "yes");
    EXPECT_TRUE(sink->allowVerboseLogging());
    core::setEnableVerboseLogging(false);
    paths.overrideFolder(PathManager::ResourceFolder, {});
}

} // namespace
