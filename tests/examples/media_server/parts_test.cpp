#include "api/text.h"
#include "console/format.h"
#include "console/rate_meter.h"
#include "library/file_kind.h"
#include <gtest/gtest.h>

namespace media {
namespace {

TEST(Text, NothingThatATerminalObeysIsPrinted)
{
    EXPECT_EQ(printable("Käse – 漢字 \U0001F3B5"), "Käse – 漢字 \U0001F3B5");
    EXPECT_EQ(printable("a\x1b[2J\n\x7f"), "a\\x1b[2J\\x0a\\x7f");
    EXPECT_EQ(printable("\xc2\x9b"), "\\xc2\\x9b"); // The one-character form of ESC [.
    EXPECT_EQ(printable("\xff \xc3"), "\\xff \\xc3"); // Cut at the end.
    EXPECT_EQ(printable(std::string_view("\0", 1)), "\\x00");
    EXPECT_EQ(printable("\\x41"), "\\\\x41"); // Not to be taken for an escape.
}

TEST(Format, AmountsAreRoundedIntoTheUnitTheyReach)
{
    EXPECT_EQ(formatBytes(999'949), "999.9 kB");
    EXPECT_EQ(formatBytes(999'950), "1.0 MB");
    EXPECT_EQ(formatBytes(INT64_MAX), "9.2 EB");
    EXPECT_EQ(formatCount(-123'456), "-123,456");
    EXPECT_EQ(formatTime(fn::Duration::milliseconds(59'960)), "1:00");
    EXPECT_EQ(formatTime(fn::Duration::seconds(3'605)), "1:00:05");
}

TEST(RateMeter, TheSpeedIsThatOfTheLastSecondsAndNeverThatOfAnEarlierAttempt)
{
    RateMeter meter;
    EXPECT_EQ(meter.perSecond(), 0);
    for (int second = 0; second <= 100; ++second) {
        meter.add(fn::Duration::seconds(second), second <= 50 ? second * 1000 : 50'000 + (second - 50) * 10);
    }
    EXPECT_EQ(meter.perSecond(), 10);
    meter.add(fn::Duration::seconds(101), 5);
    EXPECT_EQ(meter.perSecond(), 0);
    meter.add(fn::Duration::seconds(102), 8);
    EXPECT_EQ(meter.perSecond(), 3);
}

TEST(FileKind, TheLastExtensionOfTheNameCountsInAnyCase)
{
    EXPECT_EQ(kindOfFile("a/b.tar.GZ"), "archive");
    EXPECT_EQ(kindOfFile("folder.mp3/file"), "other");
    EXPECT_EQ(kindOfFile(".png"), "other");
}

} // namespace
} // namespace media
