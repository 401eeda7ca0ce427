// What can break here: the border between text in place and shared text, sharing that shows, and lenient parsing.
#include "foundation/string.h"
#include <gtest/gtest.h>
#include <random>

namespace {

using fn::String;

/// Texts that are made of each other in every way, beside the same in std::string.
class Texts {
public:
    explicit Texts(unsigned seed) : _random(seed) { }

    void run()
    {
        for (int step = 0; step < 100; ++step) {
            change(below(4), below(4));
            for (std::size_t i = 0; i < 4; ++i) compare(i, below(4));
        }
    }

private:
    std::size_t below(std::size_t limit) { return _random() % limit; }

    void change(std::size_t a, std::size_t b)
    {
        auto& text = _texts[a];
        auto& model = _models[a];
        const auto offset = below(model.size() + 3), size = below(20);
        switch (below(8)) {
        case 0: // Zeros and bytes beyond ASCII, too.
            model.assign(below(3) ? size : 12 + below(6), "\0ab\xC3"[below(4)]);
            text = model;
            break;
        case 1:
            text = _texts[b];
            model = _models[b];
            break;
        case 2: {
            const String moved = std::move(text);
            EXPECT_TRUE(text.empty());
            EXPECT_EQ(moved, model);
            model.clear();
            break;
        }
        case 3: // Also to itself: within its capacity and beyond.
            if (model.size() > 1000) return;
            text += _texts[b].view();
            model += std::string(_models[b]);
            break;
        case 4:
            text += text.view().substr(0, offset);
            model += std::string(model.substr(0, offset));
            break;
        case 5:
            if (model.size() > 1000) return;
            text = text + _texts[b];
            model = model + _models[b];
            break;
        case 6:
            text = text.substring(offset, size);
            model = offset < model.size() ? model.substr(offset, size) : "";
            break;
        case 7:
            text = "x" + text + std::string("y");
            model = "x" + model + "y";
            break;
        default: text = String(std::string(text.view()));
        }
    }

    void compare(std::size_t a, std::size_t b)
    {
        ASSERT_EQ(_texts[a].view(), _models[a]);
        ASSERT_EQ(_texts[a].c_str()[_models[a].size()], '\0');
        ASSERT_EQ(_texts[a] == _texts[b], _models[a] == _models[b]);
        ASSERT_TRUE((_texts[a] <=> _texts[b]) == (_models[a] <=> _models[b])) << "By unsigned bytes.";
        ASSERT_TRUE((_texts[a] <=> _models[b]) == (_models[a] <=> _models[b]));
    }

    std::mt19937 _random;
    String _texts[4];
    std::string _models[4];
};

TEST(String, IsWhatAStandardStringIsOnBothSidesOfTheBorderToSharedStorage)
{
    for (unsigned seed = 0; seed < 300 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Texts(seed).run();
    }
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
    struct Row {
        const char* text;
        int value;
        int base = 10;
    };
    constexpr int none = -99;
    for (const auto& row :
        { Row { " -12\t", -12 }, { "+7", 7 }, { "ff", 255, 16 }, { "2147483647", 2147483647 }, { "", none },
            { " ", none }, { "+", none }, { "-", none }, { "+-1", none }, { "--1", none }, { "1 2", none },
            { "12x", none }, { "0x10", none }, { "2147483648", none }, { "1.0", none }, { "1", none, 1 } }) {
        bool ok = false;
        EXPECT_EQ(String(row.text).toInt(none, row.base, &ok), row.value) << row.text;
        EXPECT_EQ(ok, row.value != none) << row.text;
    }
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

TEST(String, TrimsAndChangesCaseOfASCIIOnlyAndReplacesUnpairedSurrogates)
{
    EXPECT_EQ(String(" \t\v\f\r\na b ").trim(), "a b");
    EXPECT_EQ(String("  a ").trim(false), "  a");
    EXPECT_EQ(String(" \n ").trim(), "");
    EXPECT_EQ(String("\u00C4@AZ[").toLowerCase(), "\u00C4@az[");
    EXPECT_EQ(String("\u00E4`az{").toUpperCase(), "\u00E4`AZ{");
    EXPECT_EQ(String::fromUTF16(u"a\u00e4\u20ac\U0001F600"), "a\u00e4\u20ac\U0001F600");
    const char16_t broken[] = { 0xDC00, u'x', 0xD83D, 0xD83D, 0xDE00, 0xD800 };
    EXPECT_EQ(String::fromUTF16({ broken, std::size(broken) }), "\uFFFDx\uFFFD\U0001F600\uFFFD");
}

} // namespace
