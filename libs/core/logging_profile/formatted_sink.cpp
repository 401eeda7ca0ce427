#include "core/logging_profile/formatted_sink.h"
#include "foundation/assertion.h"
#include "foundation/time/local_date_time.h"
#include <algorithm>

namespace core {
namespace {

constexpr int lineCharacters = 140;
constexpr std::size_t leastIndent = 47;

fn::DateTime localFields(fn::Duration sinceEpoch)
{
    const fn::LocalDateTime local { fn::Timestamp(sinceEpoch) };
    return fn::DateTime(local.timestamp() + fn::Duration::seconds(local.timeZoneDifferential()));
}

std::string_view priorityLabel(int priority)
{
    switch (priority) {
    case fn::logging::Error: return "ERR";
    case fn::logging::Warning: return "WRN";
    case fn::logging::Fixme: return "FIX";
    case fn::logging::Info: return "INF";
    case fn::logging::Debug: return "DBG";
    case fn::logging::Log: return "LOG";
    case fn::logging::Trace: return "TRC";
    default: return "   ";
    }
}

/// "dispatcher" of "libs/core/ipc/dispatcher.cpp", whichever way the slashes lean.
std::string_view sourceName(std::string_view file)
{
    const auto name = file.substr(file.find_last_of("/\\") + 1);
    return name.substr(0, name.rfind('.'));
}

std::string header(const fn::DateTime& local, const fn::logging::Message& message)
{
    return fmt::format("{:02}:{:02}:{:02} {} {} {}:{}", local.hour(), local.minute(), local.second(),
        priorityLabel(message.priority), fn::String::numberHex(message.thread, 2, '0'), sourceName(message.file),
        message.line);
}

/// Bytes of the UTF-8 character at `offset`. A byte that begins none counts as a character, so that a line of nothing
/// else is wrapped too.
std::size_t characterBytes(std::string_view text, std::size_t offset)
{
    const auto first = static_cast<unsigned char>(text[offset]);
    const std::size_t announced = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 1;
    std::size_t bytes = 1;
    while (bytes < announced && offset + bytes < text.size() && (text[offset + bytes] & 0xC0) == 0x80) ++bytes;
    return bytes;
}

/// Whether a line may be cut behind that byte.
bool canBreakAfter(std::string_view text, std::size_t offset)
{
    switch (text[offset]) {
    case '.':
    case ' ':
    case ')':
    case '>': return true;
    case ':': {
        const bool isDouble = (offset > 0 && text[offset - 1] == ':') || text.substr(offset + 1).starts_with(':');
        return !isDouble;
    }
    default: return false;
    }
}

/// Where the line that begins at `begin` ends.
std::size_t lineEnd(std::string_view text, std::size_t begin)
{
    const auto endsAt = [&](std::size_t offset) { return offset == text.size() || text[offset] == '\n'; };
    auto end = begin;
    for (int characters = 0; characters < lineCharacters && !endsAt(end); ++characters) {
        end += characterBytes(text, end);
    }
    if (endsAt(end)) return end;
    for (auto cut = end; cut > begin; --cut) {
        if (canBreakAfter(text, cut - 1)) return cut;
    }
    return end;
}

/// The message as it is written; nothing for an empty text.
std::string formatEntry(const std::string& header, std::string_view text)
{
    auto start = header + ' ';
    if (start.size() % 2 != 0) start += ' ';
    while (start.size() < std::max(header.size() + 1, leastIndent)) start += "- ";

    std::string entry;
    entry.reserve(start.size() + text.size() + 2);
    for (std::size_t begin = 0; begin < text.size();) {
        const auto end = lineEnd(text, begin);
        const auto line = text.substr(begin, end - begin);
        const bool isFirst = begin == 0;
        begin = end < text.size() && text[end] == '\n' ? end + 1 : end;
        if (!isFirst && line.empty() && begin == text.size()) break;
        if (isFirst)
            entry += start;
        else
            entry.append(start.size(), ' ');
        entry += line;
        entry += "\r\n";
    }
    return entry;
}

} // namespace

FormattedSink::FormattedSink(fn::AutoPtr<fn::LogTarget> target) : _target(std::move(target))
{
    (void)FN_ASSERT(_target, "libs/core/logging_profile", 3, "FormattedSink", "target");
}

FormattedSink::~FormattedSink() = default;

void FormattedSink::announceDay(const fn::DateTime& local)
{
    const std::int32_t day = (local.year() * 16 + local.month()) * 32 + local.day();
    // Of the threads that find a new day one writes the line; what the others log may stand before it.
    if (_lastDay.load() == day || _lastDay.exchange(day) == day) return;
    _target->write(
        fmt::format("\r\n>>>>>> {:04}-{:02}-{:02} <<<<<<\r\n\r\n", local.year(), local.month(), local.day()));
}

void FormattedSink::logMessage(const fn::logging::Category&, const fn::logging::Message& message)
{
    const auto local = localFields(message.time);
    announceDay(local);
    _target->write(formatEntry(header(local, message), message.text));
}

} // namespace core
