// Any bytes as a logging profile. What is read, however the stream is cut, must be the same again when it is written out
// and read.
#include "base/exceptions.h"
#include "core/services/logging_profile/detail/profile_reader.h"
#include "foundation/io/buffered_input_stream.h"
#include "foundation/io/memory_input_stream.h"
#include <cstdlib>
#include <map>
#include <string>

namespace {

using core::LoggingProfile;

fn::AutoPtr<LoggingProfile> read(fn::InputStream& stream)
{
    auto profile = fn::makeAuto<LoggingProfile>();
    core::readLoggingProfile(stream, *profile);
    return profile;
}

std::string tagList(std::string_view key, const std::vector<fn::String>& tags)
{
    if (tags.empty()) return {};
    auto list = tags[0].toStdString();
    for (std::size_t i = 1; i < tags.size(); ++i) list += "," + tags[i].toStdString();
    if (list.empty()) list = " "; // One empty tag, not none.
    return fmt::format("{}={}\r\n", key, list);
}

/// A file that reads back as `profile`.
std::string write(const LoggingProfile& profile)
{
    // CR and LF: a CR in front of them belongs to the value.
    auto text = fmt::format("name={}\r\ndescription={}\r\nenabled={}\r\nsimple={}\r\nverbose={}\r\nthreshold={}\r\n",
        profile.name(), profile.description(), profile.enabled(), profile.simple(), profile.verbose(),
        static_cast<int>(profile.rootThreshold()));
    for (const auto& [category, priority] :
        std::map<fn::String, int>(profile.thresholdMap().begin(), profile.thresholdMap().end())) {
        text += fmt::format("threshold.{}={}\r\n", category, priority);
    }
    text += tagList("allowedtags", profile.allowedTags()) + tagList("forbiddentags", profile.forbiddenTags());
    for (const auto& filter : profile.filters()) text += fmt::format("filter={}\r\n", filter);
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fn::AutoPtr<LoggingProfile> profile;
    try {
        fn::MemoryInputStream stream(data, size);
        profile = read(stream);
    } catch (const fn::RangeException&) {
        if (size <= core::loggingProfileBytes) std::abort();
        return 0;
    }
    const auto text = write(*profile);

    fn::MemoryInputStream whole(data, size);
    fn::BufferedInputStream pieces(whole, 3);
    if (write(*read(pieces)) != text) std::abort();

    for (const auto& filter : profile->filters()) {
        if (!profile->hasFilter(filter)) std::abort();
    }
    if (text.size() > core::loggingProfileBytes) return 0;
    fn::MemoryInputStream again(text.data(), text.size());
    if (write(*read(again)) != text) std::abort();
    return 0;
}
