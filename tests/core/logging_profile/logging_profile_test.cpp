// What can break here: a line of a profile that is read otherwise than its author means it; a message that reaches a
// profile which does not want it, or misses one that does.
#include "core/logging_profile/logging_profile.h"
#include "core/logging_profile/profile_reader.h"
#include "foundation/io/memory_input_stream.h"
#include "recorder.h"
#include <gtest/gtest.h>
#include <map>

namespace {

using core::LoggingProfile;
using fn::logging::Category;

fn::AutoPtr<LoggingProfile> read(std::string_view text)
{
    auto profile = fn::makeAuto<LoggingProfile>();
    fn::MemoryInputStream stream(text.data(), text.size());
    core::readLoggingProfile(stream, *profile);
    return profile;
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
    const std::map<fn::String, int> thresholds(profile.thresholdMap().begin(), profile.thresholdMap().end());
    for (const auto& [category, priority] : thresholds) add(category.c_str(), priority);
    for (const auto& tag : profile.allowedTags()) add("allowed", tag);
    for (const auto& tag : profile.forbiddenTags()) add("forbidden", tag);
    for (const auto& filter : profile.filters()) add("filter", filter);
    return text;
}

TEST(LoggingProfile, IsReadLineByLine)
{
    const std::vector<std::pair<std::string_view, std::string>> table {
        { "name=A\ndescription= of b \nenabled=true\r\nsimple=YES\nverbose=1",
            "name[A]description[ of b ]enabled simple verbose " },
        { "NAME=Mixed=Case\nthreshold=4", "name[Mixed=Case]root[4]" },
        { "threshold=1\nthreshold=5\nenabled=on\nenabled=off", "root[5]" },
        { "name=a # b # c\n#name=d\n # x\n\n=e\nname\n#", "name[a ]" },
        { "name =a\n name=b\nenabled= true\nunknown=1\nthreshold.=3", "" },
        { "threshold= 4 \nthreshold.IPC.Worker=7\nthreshold.a=-1", "root[4]a[-1]ipc.worker[7]" },
        { "threshold=high\nthreshold.a=99999999999\nthreshold.b=", "a[0]b[0]" },
        { "allowedtags=a, b\nAllowedTags=c\nforbiddentags=d,,e",
            "allowed[a]allowed[b]allowed[c]forbidden[d]forbidden[]forbidden[e]" },
        { "allowedtags=\nforbiddentags= ", "forbidden[]" },
        { "filter=b\nfilter=a=1, 2\nfilter=b\nfilter=", "filter[]filter[a=1, 2]filter[b]" },
        { { "name=a\0b\n\0=c\nthreshold=3", 24 }, std::string("name[a\0b]root[3]", 16) },
        { "\xEF\xBB\xBF"
          "name=A\n\xEF\xBB\xBF"
          "name=B",
            "name[A]" }, // Some editors begin a text so.
        { "", "" },
    };
    for (const auto& [text, expected] : table) EXPECT_EQ(describe(*read(text)), expected) << text;
}

TEST(LoggingProfile, ForbidsTagsBeforeItAllowsThemAndFiltersTextsButNoErrors)
{
    const auto tags = "allowedtags=yes,both\nforbiddentags=both";
    const auto filters = "filter=text\nfilter=costarring";
    struct Row {
        const char* profile;
        int priority;
        const char *text, *tag;
        bool isTaken;
    };
    const Row rows[] = { { "forbiddentags=no", 4, "x", "", true }, { "forbiddentags=no", 5, "x", "", false },
        { "forbiddentags=no", 4, "x", "any", true }, { "forbiddentags=no", 1, "x", "no", false },
        { tags, 4, "x", "yes", true }, { tags, 4, "x", "Yes", false }, { tags, 1, "x", "both", false },
        { tags, 1, "x", "", false }, { "allowedtags=yes,", 4, "x", "", true }, // No tag is the empty tag.
        { filters, 1, "text", "", true }, { filters, 2, "text", "", false }, { filters, 2, "texts", "", true },
        { filters, 2, "", "", true }, { filters, 2, "costarring", "", false },
        { filters, 2, "liquid", "", true } }; // Its hash is that of a filter.
    const Category core("core");
    for (const auto& [settings, priority, text, tag, isTaken] : rows) {
        const auto sink = fn::makeAuto<test::RecordingSink>();
        const auto profile = read(std::string("threshold=4\n") + settings);
        profile->setSink(sink);
        profile->log(core, test::message(priority, text, tag));
        EXPECT_EQ(sink->texts.size(), isTaken) << settings << ": " << priority << text << tag;
    }
}

} // namespace
