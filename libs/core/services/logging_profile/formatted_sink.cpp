#include "core/services/logging_profile/formatted_sink.h"
#include "foundation/assertion.h"
#include "foundation/time/local_date_time.h"
#include <algorithm>
#include <fmt/format.h>

namespace core {
namespace {

constexpr auto lineCharacters = FormattedSink::lineCharacters;
constexpr std::size_t leastIndent = 47;

/// The local date and time, to the second. Keeps the last result of each thread, since most messages come in the same second as
/// the one before, and asking for the time zone costs more than writing the header.
fn::DateTime localFields(fn::Duration sinceEpoch)
{
    thread_local std::int64_t lastSecond = INT64_MIN;
    thread_local fn::DateTime last;
    const auto second = sinceEpoch.totalMicroseconds() / 1'000'000 - (sinceEpoch.totalMicroseconds() % 1'000'000 < 0);
    if (second != lastSecond) {
        const fn::LocalDateTime local { fn::Timestamp(sinceEpoch) };
        last = fn::DateTime(local.timestamp() + fn::Duration::seconds(local.timeZoneDifferential()));
        lastSecond = second;
    }
    return last;
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

/// "dispatcher" of "libs/core/ipc/dispatcher.cpp", with slashes of either kind.
std::string_view sourceName(std::string_view file)
{
    const auto name = file.substr(file.find_last_of("/\\") + 1);
    return name.substr(0, name.rfind('.'));
}

/// A text that allocates only when it grows beyond the usual size.
using Buffer = fmt::memory_buffer;

void append(Buffer& buffer, std::string_view text) { buffer.append(text.data(), text.data() + text.size()); }

void putTwoDigits(char* at, int number)
{
    at[0] = static_cast<char>('0' + number / 10);
    at[1] = static_cast<char>('0' + number % 10);
}

/// "12:34:56 INF 0a dispatcher:212". Written without a format string, which would cost more than all the rest.
void appendHeader(Buffer& entry, const fn::DateTime& local, const fn::logging::Message& message)
{
    char start[] = "hh:mm:ss PRI ";
    putTwoDigits(start, local.hour());
    putTwoDigits(start + 3, local.minute());
    putTwoDigits(start + 6, local.second());
    priorityLabel(message.priority).copy(start + 9, 3);
    append(entry, { start, 13 });
    append(entry, fn::String::numberHex(message.thread, 2, '0'));
    entry.push_back(' ');
    append(entry, sourceName(message.file));
    entry.push_back(':');
    const fmt::format_int line(message.line);
    append(entry, { line.data(), line.size() });
}

/// Bytes of the UTF-8 character at `offset`. A byte that begins no character counts as one, so that a line of such bytes is
/// wrapped, too.
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

/// The end of the line that begins at `begin`.
std::size_t lineEnd(std::string_view text, std::size_t begin)
{
    // Most lines end here, and characters need not be counted.
    const auto near = text.substr(begin, lineCharacters + 1);
    const auto bytes = std::min(near.find('\n'), near.size());
    if (bytes <= lineCharacters) return begin + bytes;

    const auto endsAt = [&](std::size_t offset) { return offset == text.size() || text[offset] == '\n'; };
    auto end = begin;
    for (std::size_t characters = 0; characters < lineCharacters && !endsAt(end); ++characters) {
        end += characterBytes(text, end);
    }
    if (endsAt(end)) return end;
    for (auto cut = end; cut > begin; --cut) {
        if (canBreakAfter(text, cut - 1)) return cut;
    }
    return end;
}

/// Appends the message as it is written; nothing for an empty text.
void formatEntry(Buffer& entry, const fn::DateTime& local, const fn::logging::Message& message)
{
    if (message.text.empty()) return;
    const auto traced = message.tracedText();
    const auto text = traced.view();
    appendHeader(entry, local, message);
    // Blanks up to an even column, then as many dashes as lead to the column of the text.
    constexpr std::string_view filling = "  - - - - - - - - - - - - - - - - - - - - - - - ";
    const auto blanks = entry.size() % 2 != 0 ? 1u : 2u;
    const auto start = entry.size() + blanks;
    const auto dashes = start < leastIndent ? (leastIndent - start + 1) / 2 : 0;
    append(entry, filling.substr(2 - blanks, blanks + 2 * dashes));

    const auto indent = entry.size();
    for (std::size_t begin = 0; begin < text.size();) {
        const auto end = lineEnd(text, begin);
        const auto line = text.substr(begin, end - begin);
        const bool isFirst = begin == 0;
        begin = end < text.size() && text[end] == '\n' ? end + 1 : end;
        if (!isFirst && line.empty() && begin == text.size()) break;
        if (!isFirst) append(entry, std::string(indent, ' '));
        append(entry, line);
        append(entry, "\r\n");
    }
}

} // namespace

FormattedSink::FormattedSink(fn::AutoPtr<fn::LogTarget> target) : _target(std::move(target))
{
    (void)FN_ASSERT(_target, fn::sites::formattedSinkHasTarget);
}

FormattedSink::~FormattedSink() = default;

void FormattedSink::announceDay(const fn::DateTime& local)
{
    const std::int32_t day = (local.year() * 16 + local.month()) * 32 + local.day();
    // If several threads see the new day at once, one writes the line; messages of the others may stand before it.
    if (_lastDay.load() == day || _lastDay.exchange(day) == day) return;
    _target->write(
        fmt::format("\r\n>>>>>> {:04}-{:02}-{:02} <<<<<<\r\n\r\n", local.year(), local.month(), local.day()));
}

void FormattedSink::logMessage(const fn::logging::Category&, const fn::logging::Message& message)
{
    const auto local = localFields(message.time);
    announceDay(local);
    Buffer entry;
    formatEntry(entry, local, message);
    _target->write(std::string_view(entry.data(), entry.size()));
}

} // namespace core
