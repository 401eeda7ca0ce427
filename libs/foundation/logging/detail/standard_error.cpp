#include "foundation/logging/detail/standard_error.h"
#include <cerrno>
#include <ctime>
#include <fmt/format.h>
#include <iterator>
#include <poll.h>
#include <unistd.h>

namespace fn::logging {
namespace {

constexpr int fullPipeMilliseconds = 100;

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

bool isControl(char c) { return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f; }

void appendEscaped(fmt::memory_buffer& line, std::string_view text)
{
    for (const char c : text) {
        if (!isControl(c))
            line.push_back(c);
        else if (c == '\n')
            fmt::format_to(std::back_inserter(line), "\\n");
        else
            fmt::format_to(std::back_inserter(line), "\\x{:02x}", static_cast<unsigned char>(c));
    }
}

} // namespace

void writeStandardError(std::string_view text) noexcept
{
    while (!text.empty()) {
        const auto written = write(STDERR_FILENO, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            pollfd output { STDERR_FILENO, POLLOUT, 0 };
            if (poll(&output, 1, fullPipeMilliseconds) <= 0) return;
        } else if (errno != EINTR) {
            return;
        }
    }
}

void writeConsoleLine(const Category& category, const Message& message)
{
    const auto milliseconds = message.time.totalMilliseconds();
    const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
    std::tm local = {};
    localtime_r(&seconds, &local);
    fmt::memory_buffer line;
    fmt::format_to(std::back_inserter(line), "{:02}:{:02}:{:02}.{:03} {} {}: ", local.tm_hour, local.tm_min,
        local.tm_sec, milliseconds % 1000, label(message.priority), category.name().view());
    appendEscaped(line, message.text);
    line.push_back('\n');
    writeStandardError({ line.data(), line.size() });
}

} // namespace fn::logging
