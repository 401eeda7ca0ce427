#include "inspector_web/request_head.h"
#include "inspector_web/access.h"
#include <algorithm>
#include <cctype>

namespace media {
namespace {

bool equalIgnoringCase(std::string_view a, std::string_view b)
{
    return std::ranges::equal(
        a, b, [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

/// Takes the first line off, without its end.
std::string_view takeLine(std::string_view& text)
{
    auto line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

std::string_view secondWord(std::string_view line)
{
    const auto blank = line.find(' ');
    if (blank == line.npos) return {};
    line.remove_prefix(blank + 1);
    return line.substr(0, line.find(' '));
}

std::string_view withoutBlanks(std::string_view text)
{
    constexpr std::string_view blanks = " \t";
    const auto first = text.find_first_not_of(blanks);
    return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

} // namespace

RequestTarget::RequestTarget(std::string_view text) : path(text)
{
    if (!equalIgnoringCase(text.substr(0, Access::scheme.size()), Access::scheme)) return;
    path.remove_prefix(Access::scheme.size());
    host = path.substr(0, path.find('/'));
    path.remove_prefix(host.size());
}

RequestHead::RequestHead(std::string_view text) : target(secondWord(takeLine(text)))
{
    while (!text.empty()) {
        const auto line = takeLine(text);
        if (line.empty()) return;
        const auto name = line.substr(0, line.find(':'));
        const auto value = withoutBlanks(line.substr(std::min(name.size() + 1, line.size())));
        if (equalIgnoringCase(name, "Host")) hosts.push_back(value);
        if (equalIgnoringCase(name, "Origin")) origins.push_back(value);
    }
}

} // namespace media
