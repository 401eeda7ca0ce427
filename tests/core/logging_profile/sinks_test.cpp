// What can break here: the bytes of an entry, which people and programs read; a text that passes for an entry of its own
// or is torn within a character.
#include "core/services/logging_profile/formatted_sink.h"
#include "recorder.h"
#include "support/scoped_variable.h"
#include <gmock/gmock.h>

namespace {

using fn::Duration;
using testing::ElementsAre;
using Strings = std::vector<std::string>;

class FormattedSink : public testing::Test {
protected:
    Strings write(const fn::logging::Message& message)
    {
        target->entries.clear();
        sink->logMessage(category, message);
        return target->entries;
    }

    // The text of each line of an entry, which must have the header once and the indent before all others.
    Strings linesOf(std::string_view text)
    {
        write(messageOf(""));
        const auto entry = write(messageOf(text)).back();
        Strings lines;
        for (std::size_t begin = 0, end; begin < entry.size(); begin = end + 2) {
            end = entry.find("\r\n", begin);
            EXPECT_EQ(entry.substr(begin, 48), lines.empty() ? start : std::string(48, ' '));
            lines.push_back(entry.substr(begin + 48, end - begin - 48));
        }
        return lines;
    }

    // At 12:34:56 local time of 2024-02-29.
    static fn::logging::Message messageOf(std::string_view text)
    {
        auto message = test::message(4, text);
        message.thread = 10;
        message.file = "libs/core/ipc/dispatcher.cpp";
        message.line = 212;
        message.time = Duration::seconds(1'709'202'896);
        return message;
    }

    const test::ScopedVariable zone { "TZ", "TST-2" }; // Two hours ahead of UTC.
    const std::string start = "12:34:56 INF 0a dispatcher:212  - - - - - - - - ";
    const fn::logging::Category category { "core" };
    const fn::AutoPtr<test::RecordingTarget> target = fn::makeAuto<test::RecordingTarget>();
    const fn::AutoPtr<core::FormattedSink> sink = fn::makeAuto<core::FormattedSink>(target);
};

TEST_F(FormattedSink, PutsTheTextInAnEvenColumnBehindHeadersOfAnyLength)
{
    const std::tuple<int, std::uint8_t, const char*, const char*> rows[] = {
        { 1, 0, "a", "ERR 00 a:212 - - - - - - - - - - - - - text\r\n" },
        { 2, 255, "C:\\x.y\\b.c.cpp", "WRN ff b.c:212 - - - - - - - - - - - - text\r\n" },
        { 8, 1, "0123456789012345678901234567", "    01 0123456789012345678901234567:212  text\r\n" },
    };
    write(messageOf(""));
    for (const auto& [priority, thread, file, expected] : rows) {
        auto message = messageOf("text");
        message.priority = priority;
        message.thread = thread;
        message.file = file;
        EXPECT_THAT(write(message), ElementsAre(std::string("12:34:56 ") + expected));
    }
}

TEST_F(FormattedSink, WrapsWhereATextMayBreakAndBetweenCharactersWhateverTheirBytes)
{
    const auto x = [](int count) { return std::string(static_cast<std::size_t>(count), 'x'); };
    std::vector<std::pair<std::string, Strings>> table {
        { "\n", { "" } },
        { "one\n\nlast\n", { "one", "", "last" } },
        { "a\r\n\x1b[2J", { "a\r", "\x1b[2J" } },
        { x(140) + " " + x(5), { x(140), " " + x(5) } },
        { x(50) + " " + x(20) + "." + x(100), { x(50) + " " + x(20) + ".", x(100) } },
        { x(139) + "::" + x(200), { x(139) + ":", ":" + x(139), x(61) } },
        { "\xf0\nx", { "\xf0", "x" } }, // A character cut short takes no line end.
        { x(139) + "\xe2\x82", { x(139) + "\xe2\x82" } },
    };
    for (const char* mark : { ")", ">", ":" }) table.push_back({ x(50) + mark + x(100), { x(50) + mark, x(100) } });
    for (const std::string character : { "ü", "€", "😀", "\x80", "\xff" }) {
        std::string ten, line;
        for (int i = 0; i < 10; ++i) ten += character;
        for (int i = 0; i < 14; ++i) line += ten;
        table.push_back({ line + ten, { line, ten } });
    }
    for (const auto& [text, expected] : table) EXPECT_EQ(linesOf(text), expected) << text;
    EXPECT_THAT(write(messageOf("")), ElementsAre(""));
}

} // namespace
