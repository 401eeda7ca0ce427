// What can break here: the border between text in place and shared text, sharing that shows, storage kept too long, lenient parsing.
#include "base/byte_array.h"
#include "base/exceptions.h"
#include <gtest/gtest.h>
#include <random>

namespace {

using fn::ByteArray;
using fn::String;

/// Texts or arrays that are made of each other in every way and share storage, beside strings that share nothing.
template <typename T> class History {
public:
    explicit History(unsigned seed) : _random(seed) { }

    void run()
    {
        for (int step = 0; step < 100; ++step) {
            change(below(4), below(4));
            for (std::size_t i = 0; i < 4; ++i) compare(i, below(4));
        }
    }

private:
    static constexpr bool isText = std::is_same_v<T, String>;
    std::size_t below(std::size_t limit) { return _random() % limit; }

    void change(std::size_t a, std::size_t b)
    {
        auto& bytes = _all[a];
        auto& model = _models[a];
        const auto offset = below(model.size() + 3), size = below(40);
        switch (below(7)) {
        case 0: // Zeros and bytes beyond ASCII, too.
            model.assign(below(3) ? size : 12 + below(6), "\0ab\xC3"[below(4)]);
            bytes = T(std::string_view(model));
            break;
        case 1:
            bytes = _all[b];
            model = _models[b];
            break;
        case 2: {
            const T moved = std::move(bytes);
            EXPECT_TRUE(bytes.empty());
            EXPECT_EQ(moved.view(), model);
            model.clear();
            break;
        }
        case 3: // Also to itself: within its capacity and beyond.
            if (model.size() > 1000) return;
            append(bytes, _all[b].view());
            model += std::string(_models[b]);
            break;
        case 4: // Also of itself: the last holder may use the whole buffer.
            if constexpr (isText)
                bytes = _all[b].substring(offset, size);
            else
                bytes = _all[b].slice(offset, size);
            model = offset < _models[b].size() ? _models[b].substr(offset, size) : "";
            break;
        default: changeOne(bytes, model, offset, size);
        }
    }

    static void append(String& text, std::string_view more) { text += more; }
    static void append(ByteArray& bytes, std::string_view more) { bytes.append(more.data(), more.size()); }

    void changeOne(String& text, std::string& model, std::size_t offset, std::size_t)
    {
        text += text.view().substr(0, offset);
        text = "x" + text + std::string("y") + String();
        model += std::string(model.substr(0, offset));
        model = "x" + model + "y";
    }

    void changeOne(ByteArray& bytes, std::string& model, std::size_t offset, std::size_t size)
    {
        switch (below(5)) {
        case 0: // Grows with zeros.
            bytes.resize(size);
            model.resize(size);
            break;
        case 1:
            bytes.clear();
            model.clear();
            break;
        case 2: bytes.reserve(size); break;
        case 3:
            bytes.removePrefix(offset);
            model.erase(0, offset);
            break;
        default:
            if (offset >= model.size()) return;
            bytes.mutableData()[offset] = 'x';
            model[offset] = 'x';
        }
    }

    void compare(std::size_t a, std::size_t b)
    {
        ASSERT_EQ(_all[a].view(), _models[a]);
        ASSERT_EQ(_all[a] == _all[b], _models[a] == _models[b]);
        ASSERT_TRUE((_all[a] <=> _all[b]) == (_models[a] <=> _models[b])) << "By unsigned bytes.";
        if constexpr (isText) {
            ASSERT_EQ(_all[a].c_str()[_models[a].size()], '\0');
        }
    }

    std::mt19937 _random;
    T _all[4];
    std::string _models[4];
};

template <typename T> struct SharedStorage : testing::Test {
};
using Kinds = testing::Types<String, ByteArray>;
TYPED_TEST_SUITE(SharedStorage, Kinds);

TYPED_TEST(SharedStorage, ShowsInNoCopyAndNoPart)
{
    for (unsigned seed = 0; seed < 300 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        History<TypeParam>(seed).run();
    }
    EXPECT_THROW(ByteArray().reserve(std::size_t(1) << 32), fn::RangeException);
}

TEST(String, ReadsNumbersWholeOrNotAtAll)
{
    struct Row {
        const char* text;
        int value;
        int base = 10;
    };
    constexpr int none = -99;
    for (const auto& row : { Row { " -12\t", -12 }, { "+7", 7 }, { "ff", 255, 16 }, { "2147483647", 2147483647 },
             { "", none }, { " ", none }, { "+", none }, { "+-1", none }, { "1 2", none }, { "12x", none },
             { "0x10", none }, { "2147483648", none }, { "1.0", none }, { "1", none, 1 } }) {
        bool ok = false;
        EXPECT_EQ(String(row.text).toInt(none, row.base, &ok), row.value) << row.text;
        EXPECT_EQ(ok, row.value != none) << row.text;
    }
    EXPECT_EQ(String("-9223372036854775808").toInt64(), INT64_MIN);
    EXPECT_EQ(String("9223372036854775808").toInt64(5), 5);
    EXPECT_TRUE(String("YES").toBool());
    EXPECT_FALSE(String("yes!").toBool());
}

TEST(String, TrimsAndChangesCaseOfASCIIOnlyAndReplacesUnpairedSurrogates)
{
    EXPECT_EQ(String(" \t\v\f\r\na b ").trim(), "a b");
    EXPECT_EQ(String("  a ").trim(false), "  a");
    EXPECT_EQ(String("\u00C4@AZ[").toLowerCase(), "\u00C4@az[");
    EXPECT_EQ(String("\u00E4`az{").toUpperCase(), "\u00E4`AZ{");
    const char16_t broken[] = { 0xDC00, u'\u20ac', 0xD83D, 0xD83D, 0xDE00, 0xD800 };
    EXPECT_EQ(String::fromUTF16({ broken, std::size(broken) }), "\uFFFD\u20ac\uFFFD\U0001F600\uFFFD");
}

} // namespace
