// What can break here: a line of a profile that is read otherwise than its author means it; a message that reaches a
// profile which does not want it, or misses one that does.
#include "core/logging_profile/logging_profile.h"
#include "core/logging_profile/profile_reader.h"
#include "foundation/exceptions.h"
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
    const auto add = [&](const char* key, const fn::String& value) { text += fmt::format("{}[{}]", key, value); };
    const auto addAll = [&](const char* key, const auto& values) {
        for (const auto& value : values) add(key, value);
    };
    if (!profile.name().empty()) add("name", profile.name());
    if (!profile.description().empty()) add("description", profile.description());
    if (profile.enabled()) text += "enabled ";
    if (profile.simple()) text += "simple ";
    if (profile.verbose()) text += "verbose ";
    if (profile.rootThreshold() != 0) text += fmt::format("root[{}]", static_cast<int>(profile.rootThreshold()));
    for (const auto& [category, priority] :
        std::map<fn::String, int>(profile.thresholdMap().begin(), profile.thresholdMap().end())) {
        text += fmt::format("{}[{}]", category, priority);
    }
    addAll("allowed", profile.allowedTags());
    addAll("forbidden", profile.forbiddenTags());
    addAll("filter", profile.filters());
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

TEST(LoggingProfile, IsRefusedWhenItIsTooLongToBeOne)
{
    const std::string comment = "#" + std::string(1022, '-') + "\n";
    std::string text = "threshold=3\n";
    while (text.size() + comment.size() <= core::loggingProfileBytes) text += comment;
    EXPECT_EQ(describe(*read(text)), "root[3]");
    EXPECT_THROW(read(text + comment), fn::RangeException);
    EXPECT_THROW(read(std::string(core::loggingProfileBytes + 1, 'x')), fn::RangeException);
}

// What a profile takes of messages.
class Selection : public testing::Test {
protected:
    void use(std::string_view text)
    {
        profile = read(text);
        profile->setSink(sink);
    }
    bool takes(const fn::logging::Message& message)
    {
        sink->texts.clear();
        profile->log(core, message);
        return !sink->texts.empty();
    }

    const Category core { "core" };
    fn::AutoPtr<test::RecordingSink> sink = fn::makeAuto<test::RecordingSink>();
    fn::AutoPtr<LoggingProfile> profile;
};

TEST_F(Selection, ForbidsTagsBeforeItAllowsThem)
{
    use("threshold=4\nforbiddentags=no");
    EXPECT_TRUE(takes(test::message(4)));
    EXPECT_TRUE(takes(test::message(4, "text", "any")));
    EXPECT_FALSE(takes(test::message(1, "text", "no")));
    use("threshold=4\nallowedtags=yes,both\nforbiddentags=both");
    EXPECT_TRUE(takes(test::message(4, "text", "yes")));
    EXPECT_FALSE(takes(test::message(4, "text", "Yes")));
    EXPECT_FALSE(takes(test::message(1, "text", "both")));
    EXPECT_FALSE(takes(test::message(1))) << "no tag is the empty tag";
    use("threshold=4\nallowedtags=yes,");
    EXPECT_TRUE(takes(test::message(4)));
}

TEST_F(Selection, DropsTextsThatAreFilteredButNoErrors)
{
    use("threshold=4\nfilter=text\nfilter=costarring");
    EXPECT_TRUE(takes(test::message(1, "text")));
    EXPECT_FALSE(takes(test::message(2, "text")));
    EXPECT_TRUE(takes(test::message(2, "texts")));
    EXPECT_TRUE(takes(test::message(2, ""))) << "no filter for it";
    EXPECT_FALSE(takes(test::message(2, "costarring")));
    EXPECT_TRUE(takes(test::message(2, "liquid"))) << "its hash is that of a filter";
}

} // namespace
