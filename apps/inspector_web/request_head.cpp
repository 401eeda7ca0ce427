#include "inspector_web/request_head.h"
#include "inspector_web/access.h"
#include <algorithm>
#include <cctype>

namespace inspector_web {
namespace {

bool equalIgnoringCase(std::string_view a, std::string_view b)
{
    return std::ranges::equal(
        a, b, [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

/// Removes the part of `text` up to the first `end`, and gives it without that.
std::string_view take(std::string_view& text, char end)
{
    const auto part = text.substr(0, text.find(end));
    text.remove_prefix(std::min(part.size() + 1, text.size()));
    return part;
}

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view blanks = " \t\r";
    const auto first = text.find_first_not_of(blanks);
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

} // namespace

RequestHead::RequestHead(std::string_view text)
{
    auto line = trimmed(take(text, '\n'));
    method = take(line, ' ');
    query = take(line, ' ');
    path = take(query, '?');
    if (equalIgnoringCase(path.substr(0, Access::scheme.size()), Access::scheme)) {
        path.remove_prefix(Access::scheme.size());
        targetHost = path.substr(0, path.find('/'));
        path.remove_prefix(targetHost.size());
    }
    while (!(line = trimmed(take(text, '\n'))).empty()) {
        const auto name = take(line, ':');
        if (equalIgnoringCase(name, "Host")) hosts.push_back(trimmed(line));
        if (equalIgnoringCase(name, "Origin")) origins.push_back(trimmed(line));
    }
}

} // namespace inspector_web
