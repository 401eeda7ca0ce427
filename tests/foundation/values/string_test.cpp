// What can break here: the border between text in place and shared text, sharing that shows, and lenient parsing.
#include "foundation/string.h"
#include <gtest/gtest.h>

namespace {

using fn::String;

TEST(String, IsTheSameTextOnBothSidesOfTheBorderToSharedStorage)
{
    for (const std::size_t size : { 0u, 1u, 14u, 15u, 16u, 17u, 300u }) {
        std::string expected(size, 'x');
        if (size > 2) expected[1] = '\0';
        String text = expected;
        EXPECT_EQ(text.view(), expected);
        EXPECT_EQ(text.c_str()[size], '\0');
        const String copy = text;
        const String moved = std::move(text);
        EXPECT_EQ(copy, moved);
        EXPECT_TRUE(text.empty());
        text = "again";
        text = *&text;
        EXPECT_EQ(text, "again");
    }
}

TEST(String, AppendingItselfOrToACopyLeavesTheOthersAlone)
{
    String text = "ab";
    std::string expected = "ab";
    for (int i = 0; i < 8; ++i) { // Crosses from in place to shared, then grows within its capacity and beyond.
        const String before = text;
        text += text.view().substr(1);
        EXPECT_EQ(before.view(), expected);
        expected += std::string(expected, 1);
        EXPECT_EQ(text.view(), expected);
        EXPECT_EQ(text.c_str()[text.size()], '\0');
    }
    text += "0";
    String fork = text; // Both have room for more, in one buffer.
    fork += "1";
    text += "2";
    EXPECT_EQ(fork.view(), expected + "01");
    EXPECT_EQ(text.view(), expected + "02");
    expected += "02";
    text += std::string_view();
    EXPECT_EQ(text.view(), expected);
}

TEST(String, OrdersByUnsignedBytesAndCountsZeros)
{
    EXPECT_LT(String("a"), String("\xC3\xA4"));
    EXPECT_LT(String("a"), String(std::string_view("a\0", 2)));
    EXPECT_LT(String("a long text, first"), String("a long text, second"));
}

template <typename T> void expectToMixWith(const T& b)
{
    EXPECT_EQ(String("a") + b, "ab");
    EXPECT_EQ(b + String("c"), "bc");
    EXPECT_TRUE(String("b") == b && b == String("b") && String("a") != b);
    EXPECT_TRUE(String("a") < b && b < String("c"));
}

TEST(String, MixesWithTheTextsOfTheStandardLibrary)
{
    expectToMixWith(std::string("b"));
    expectToMixWith(std::string_view("b"));
    expectToMixWith(String("b"));
}

TEST(String, SplitsAtLimitsEmptyPartsAndBlanks)
{
    using Parts = std::vector<String>;
    EXPECT_EQ(String("").split('/', String::KeepEmptyParts), Parts {});
    EXPECT_EQ(String("a//b/").split('/'), (Parts { "a", "b" }));
    EXPECT_EQ(String("a//b/").split('/', String::KeepEmptyParts), (Parts { "a", "", "b", "" }));
    EXPECT_EQ(String("a, b ,, c").split(',', String::TrimParts), (Parts { "a", "b", "c" }));
    EXPECT_EQ(String("k = v = w").split('=', String::TrimParts | String::KeepEmptyParts, 2), (Parts { "k", "v = w" }));
    EXPECT_EQ(String("a=b").split('=', 0, 1), Parts { "a=b" });
}

TEST(String, ReadsNumbersWholeOrNotAtAll)
{
    const auto parse = [](const char* text, int base = 10) {
        bool ok = false;
        const int value = String(text).toInt(-99, base, &ok);
        EXPECT_EQ(ok, value != -99) << text;
        return value;
    };
    EXPECT_EQ(parse(" -12\t"), -12);
    EXPECT_EQ(parse("+7"), 7);
    EXPECT_EQ(parse("ff", 16), 255);
    EXPECT_EQ(parse("2147483647"), 2147483647);
    for (const char* bad : { "", " ", "+", "-", "+-1", "--1", "1 2", "12x", "0x10", "2147483648", "1.0" }) {
        EXPECT_EQ(parse(bad), -99) << bad;
    }
    EXPECT_EQ(parse("1", 1), -99);
    EXPECT_EQ(String("-9223372036854775808").toInt64(), INT64_MIN);
    EXPECT_EQ(String("9223372036854775808").toInt64(5), 5);
    EXPECT_TRUE(String("YES").toBool());
    EXPECT_FALSE(String("yes!").toBool());
}

TEST(String, WritesNumbersThatReadBack)
{
    EXPECT_EQ(String::number(UINT64_MAX), "18446744073709551615");
    EXPECT_EQ(String::number(INT64_MIN), "-9223372036854775808");
    EXPECT_EQ(String::number(0.1), "0.1");
    EXPECT_EQ(String::numberHex(0xAB, 4, '0'), "00ab");
    EXPECT_EQ(String::numberHex(0xABCDE, 2, '0'), "abcde");
    EXPECT_EQ(fmt::format("[{:>4}]", String("ab")), "[  ab]");
}

TEST(String, TrimsAndChangesCaseOfASCIIOnly)
{
    EXPECT_EQ(String(" \t\v\f\r\na b ").trim(), "a b");
    EXPECT_EQ(String("  a ").trim(false), "  a");
    EXPECT_EQ(String(" \n ").trim(), "");
    EXPECT_EQ(String("\xC3\x84"
                     "BC")
                  .toLowerCase(),
        "\xC3\x84"
        "bc");
    EXPECT_EQ(String("abc").substring(1, 9), "bc");
    EXPECT_EQ(String("abc").substring(4), "");
}

TEST(String, ReplacesUnpairedSurrogates)
{
    EXPECT_EQ(String::fromUTF16(u"a\u00e4\u20ac\U0001F600"), "a\u00e4\u20ac\U0001F600");
    const char16_t broken[] = { 0xDC00, u'x', 0xD83D, 0xD83D, 0xDE00, 0xD800 };
    EXPECT_EQ(String::fromUTF16({ broken, std::size(broken) }), "\uFFFDx\uFFFD\U0001F600\uFFFD");
}

} // namespace
