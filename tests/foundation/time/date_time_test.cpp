// What can break here: the calendar before 1970 and far from now; a text that is no date and yet gives one.
#include "base/exceptions.h"
#include "foundation/time/date_time_formatter.h"
#include "foundation/time/date_time_parser.h"
#include <ctime>
#include <gtest/gtest.h>
#include <random>

namespace {

using fn::DateTime;
using fn::DateTimeFormatter;
using fn::DateTimeParser;
using fn::Timestamp;
using enum fn::DateTimeFormat;

constexpr std::int64_t second = 1'000'000;
constexpr int hour = 60 * 60;

TEST(DateTimeFormatter, WritesTheMomentInTheZoneAskedForAsTheParserReadsIt)
{
    std::mt19937_64 random(1);
    for (int i = 0; i < 3000; ++i) {
        const auto moment = static_cast<std::int64_t>(random()) >> (1 + random() % 40);
        const std::time_t seconds = moment / second - (moment % second < 0 ? 1 : 0);
        std::tm fields; // The C library knows the same calendar.
        ASSERT_TRUE(::gmtime_r(&seconds, &fields));
        const DateTime utc { Timestamp(moment) };
        ASSERT_EQ(std::tuple(utc.year(), utc.month(), utc.day(), utc.hour()),
            std::tuple(fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour));
        const auto zone = (static_cast<int>(random() % 2879) - 1439) * 60;
        for (const auto format : { RFC1123_FORMAT, SORTABLE_FORMAT }) {
            int read = -1;
            auto date = DateTimeParser::parse(DateTimeFormatter::format(Timestamp(moment), format, zone), format, read);
            ASSERT_EQ(read, format == SORTABLE_FORMAT ? 0 : zone); // The first form does not tell.
            date.makeUTC(zone);
            ASSERT_EQ(date.timestamp().microseconds(), seconds * second);
        }
    }
    EXPECT_EQ(DateTimeFormatter::format(Timestamp(0), RFC1123_FORMAT, -9 * hour), "Wed, 31 Dec 1969 15:00:00 -0900");
    EXPECT_EQ(DateTimeFormatter::format(Timestamp(-1), SORTABLE_FORMAT, 5 * hour + 1800), "1970-01-01 05:29:59");
    EXPECT_EQ(Timestamp(1'000'000'000'000'001).toString(), "2001-09-09 01:46:40.000001");
    EXPECT_EQ(Timestamp(INT64_MIN).toString(), "-9223372036854775808 us");
    EXPECT_THROW(DateTimeFormatter::format(Timestamp(0), RFC1123_FORMAT, 24 * hour), fn::RangeException);
    EXPECT_THROW(DateTimeFormatter::format(Timestamp(INT64_MAX), RFC1123_FORMAT, hour), fn::RangeException);
    EXPECT_THROW(fn::DateTime(294247, 1, 10, 4, 0, 54, 775808), fn::RangeException) << "one behind the last";
    EXPECT_THROW(fn::DateTime(-290308, 12, 21, 19, 59, 5, 224191), fn::RangeException) << "one before the first";
}

TEST(DateTimeParser, ReadsTheFormsThatOthersWriteAndTakesNothingElseForADate)
{
    const auto parse = [](std::string_view text, fn::DateTimeFormat format = RFC1123_FORMAT) {
        int zone = -1;
        auto date = DateTimeParser::parse(fn::String(text), format, zone);
        date.makeUTC(zone);
        return date.timestamp().microseconds() / second;
    };
    for (const auto* text : { "Sun, 06 Nov 1994 08:49:37 GMT", "6 Nov 1994 08:49:37 UT", "06 Nov 1994 08:49:37 UTC",
             "Sun, 6 Nov 1994 10:19:37 +0130", "Sat, 05 Nov 1994 23:49:37 -0900" })
        EXPECT_EQ(parse(text), 784'111'777) << text;
    EXPECT_EQ(parse("29 Feb 2000 00:00 GMT"), 951'782'400);

    const std::string valid = "Sun, 06 Nov 1994 08:49:37 +0100", sortable = "1994-11-06 08:49:37";
    const auto expectRefused = [&](std::string_view text, fn::DateTimeFormat format = RFC1123_FORMAT) {
        EXPECT_THROW(parse(text, format), fn::DataFormatException) << text;
    };
    for (std::size_t size = 0; size < valid.size(); ++size) expectRefused(valid.substr(0, size));
    for (std::size_t size = 0; size < sortable.size(); ++size) expectRefused(sortable.substr(0, size), SORTABLE_FORMAT);
    expectRefused(valid, SORTABLE_FORMAT);
    for (const auto* text : { "1994-11-06 08:49:37", "Sun, 06 Nov 1994 08:49:37 GMT ", "Sun, 06 Nov 1994 08:49:37 gmt",
             "Son, 06 Nov 1994 08:49:37 GMT", "Sun 06 Nov 1994 08:49:37 GMT", "Sun, 31 Feb 1994 08:49:37 GMT",
             "29 Feb 1900 08:49:37 GMT", "00 Nov 1994 08:49:37 GMT", "06 Nov 1994 08:60:37 GMT",
             "Sun, 06 Nov 1994 08:49:37 +2400", "Sun, 06 Nov 1994 08:49:37 +0160", "Sun, 06 Nov 1994 08:49:37.5 GMT",
             "Sun, 06 Nov 999999 08:49:37 GMT", "Sun, 06 Nov 99999999999 08:49:37 GMT",
             "Sun, -6 Nov 1994 08:49:37 GMT" })
        expectRefused(text);
}

} // namespace
