#include "core/services/logging_profile/detail/profile_reader.h"
#include "base/exceptions.h"
#include "foundation/io/stream_reader.h"

namespace core {
namespace {

constexpr int keepEmpty = fn::String::KeepEmptyParts;
constexpr std::string_view categoryPrefix = "threshold.";
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF"; // Some editors begin a text with it.

LoggingProfile::Priority priority(const fn::String& value)
{
    return static_cast<LoggingProfile::Priority>(value.toInt());
}

void appendTags(std::vector<fn::String>& tags, const fn::String& value)
{
    for (auto& tag : value.split(',', keepEmpty | fn::String::TrimParts)) tags.push_back(std::move(tag));
}

void apply(const fn::String& key, const fn::String& value, LoggingProfile& profile)
{
    if (key == "name") {
        profile.setName(value);
    } else if (key == "enabled") {
        profile.setEnabled(value.toBool());
    } else if (key == "description") {
        profile.setDescription(value);
    } else if (key == "simple") {
        profile.setSimple(value.toBool());
    } else if (key == "verbose") {
        profile.setVerbose(value.toBool());
    } else if (key == "allowedtags") {
        appendTags(profile.allowedTags(), value);
    } else if (key == "forbiddentags") {
        appendTags(profile.forbiddenTags(), value);
    } else if (key == "filter") {
        profile.addFilter(value);
    } else if (key == "threshold") {
        profile.setRootThreshold(priority(value));
    } else if (key.startsWith(categoryPrefix) && key.size() > categoryPrefix.size()) {
        profile.setCategoryThreshold(key.substring(categoryPrefix.size()), priority(value));
    }
}

void readLine(const fn::String& line, LoggingProfile& profile)
{
    const auto content = line.split('#', keepEmpty, 2);
    if (content.empty()) return;
    const auto setting = content[0].split('=', keepEmpty, 2);
    if (setting.size() < 2 || setting[0].empty()) return;
    apply(setting[0].toLowerCase(), setting[1], profile);
}

} // namespace

void readLoggingProfile(fn::InputStream& stream, LoggingProfile& profile)
{
    bool isFirst = true;
    for (fn::String line; fn::StreamReader::readLine(stream, line, loggingProfileBytes); isFirst = false) {
        if (stream.position() > loggingProfileBytes) {
            throw fn::with(fn::RangeException("The logging profile is longer than allowed"),
                fn::DetailInfo { "Limit: " + fn::String::number(std::uint64_t { loggingProfileBytes }) });
        }
        const bool isMarked = isFirst && line.startsWith(byteOrderMark);
        readLine(isMarked ? line.substring(byteOrderMark.size()) : line, profile);
    }
}

} // namespace core
