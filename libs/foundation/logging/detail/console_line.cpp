#include "foundation/logging/detail/console_line.h"
#include "foundation/logging/detail/standard_error.h"
#include <ctime>
#include <fmt/format.h>
#include <iterator>

namespace fn::logging {
namespace {

std::string_view label(int priority)
{
    switch (priority) {
    case Error: return "ERR";
    case Warning: return "WRN";
    case Fixme: return "FIX";
    case Info: return "INF";
    case Debug: return "DBG";
    case Log: return "LOG";
    case Trace: return "TRC";
    default: return "   ";
    }
}

/// The bytes of the control character at `offset`, 0 if there is none. U+0080 to U+009F command terminals, too.
std::size_t controlBytes(std::string_view text, std::size_t offset)
{
    const auto byte = static_cast<unsigned char>(text[offset]);
    if (byte < 0x20 || byte == 0x7f) return 1;
    if (byte != 0xc2 || offset + 1 == text.size()) return 0;
    const auto next = static_cast<unsigned char>(text[offset + 1]);
    return next >= 0x80 && next < 0xa0 ? 2 : 0;
}

/// The text, with its lines after the first one indented by `columns`, as in log files, and without a line end at its end.
std::string indented(std::string_view text, std::size_t columns)
{
    if (text.ends_with('\n')) text.remove_suffix(1);
    std::string result;
    result.reserve(text.size());
    for (const char byte : text) {
        result += byte;
        if (byte == '\n') result.append(columns, ' ');
    }
    return result;
}

} // namespace

std::string escapeControls(std::string_view text, std::string_view kept)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t offset = 0; offset < text.size(); ++offset) {
        const auto bytes = controlBytes(text, offset);
        if (bytes == 0 || kept.contains(text[offset])) {
            result += text[offset];
        } else {
            // The second byte of a control character of two bytes is its number.
            offset += bytes - 1;
            fmt::format_to(std::back_inserter(result), "\\x{:02x}", static_cast<unsigned char>(text[offset]));
        }
    }
    return result;
}

void writeConsoleLine(const Category& category, const Message& message)
{
    const auto milliseconds = message.time.totalMilliseconds();
    const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
    std::tm local = {};
    localtime_r(&seconds, &local);
    const auto header = fmt::format("{:02}:{:02}:{:02}.{:03} {} {}: ", local.tm_hour, local.tm_min, local.tm_sec,
        milliseconds % 1000, label(message.priority), category.name().view());
    writeStandardError(header + indented(escapeControls(message.tracedText(), "\t\n"), header.size()) + "\n");
}

} // namespace fn::logging
