#include "foundation/logging/logging.h"
#include "foundation/logging/detail/category_private.h"
#include "foundation/logging/detail/console_line.h"
#include "foundation/time/clock.h"
#include "foundation/unhandled_exception.h"
#include "foundation/work_context.h"
#include <array>
#include <cstdarg>
#include <cstdio>

namespace fn::logging {
namespace {

std::uint8_t threadNumber() noexcept
{
    static std::atomic<std::uint8_t> last { 0 };
    thread_local const std::uint8_t number = last.fetch_add(1, std::memory_order_relaxed);
    return number;
}

void deliver(const Category& category, const Message& message)
{
    const auto listeners = category.internals().listeners.read();
    if (listeners->empty() && message.priority <= thresholdWithoutSinks) writeConsoleLine(category, message);
    for (const auto& [sink, threshold, system] : *listeners) {
        if (message.priority > threshold || (system && system != uv::System::current())) continue;
        try {
            sink->logMessage(category, message);
        } catch (...) {
            unhandledException();
        }
    }
}

// Like vsnprintf(), for text of any length.
String formatPrintf(const char* format, va_list arguments)
{
    std::array<char, 512> buffer;
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(buffer.data(), buffer.size(), format, arguments);
    std::string text;
    if (length >= static_cast<int>(buffer.size())) {
        text.resize(static_cast<std::size_t>(length));
        vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    if (length < 0) return String("Could not format the message: ") + format;
    return text.empty() ? String(std::string_view(buffer.data(), static_cast<std::size_t>(length))) : String(text);
}

} // namespace

void write(const Category& category, int priority, const Tag& tag, const Site& site, String text) noexcept
{
    try {
        deliver(category,
            Message {
                .priority = priority,
                .thread = threadNumber(),
                .tag = tag,
                .file = site.file,
                .line = site.line,
                .function = site.function,
                .time = Clock::system().sinceEpoch(),
                .text = std::move(text),
                .traceId = WorkContext::current().traceId(),
            });
    } catch (...) {
        unhandledException();
    }
}

void writeFormatted(const Category& category, int priority, const Tag& tag, const Site& site, fmt::string_view format,
    fmt::format_args arguments) noexcept
{
    try {
        fmt::memory_buffer buffer;
        try {
            fmt::vformat_to(fmt::appender(buffer), format, arguments);
        } catch (const std::exception& problem) {
            buffer.clear();
            fmt::format_to(fmt::appender(buffer), "Could not format the message \"{}\": {}", format, problem.what());
        }
        write(category, priority, tag, site, std::string_view(buffer.data(), buffer.size()));
    } catch (...) {
        unhandledException();
    }
}

void writePrintf(
    const Category& category, int priority, const Tag& tag, const Site& site, const char* format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    try {
        write(category, priority, tag, site, formatPrintf(format, arguments));
    } catch (...) {
        unhandledException();
    }
    va_end(arguments);
}

} // namespace fn::logging
