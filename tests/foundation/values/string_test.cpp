// What can break here: the border between text in place and shared text, sharing that shows, storage kept too long, lenient parsing.
#include "base/byte_array.h"
#include "base/exceptions.h"
#include "base/utf8.h"
#include <gtest/gtest.h>
#include <random>

namespace {

using fn::ByteArray;
using fn::String;

using Kinds = testing::Types<String, ByteArray>;
template <typename T> struct SharedStorage : testing::Test {
};
TYPED_TEST_SUITE(SharedStorage, Kinds);

void append(String& text, std::string_view more) { text += more; }
void append(ByteArray& bytes, std::string_view more) { bytes.append(more.data(), more.size()); }
String part(const String& text, std::size_t offset, std::size_t size) { return text.substring(offset, size); }
ByteArray part(const ByteArray& bytes, std::size_t offset, std::size_t size) { return bytes.slice(offset, size); }
void change(String& text, std::string& model)
{
    text = "x" + text + String();
    model = "x" + model;
}
void change(ByteArray& bytes, std::string& model)
{
    if (model.empty()) return bytes.clear();
    bytes.mutableData()[0] = 'x';
    model[0] = 'x';
}

TYPED_TEST(SharedStorage, ShowsInNoCopyAndNoPart)
{
    std::mt19937 random(1);
    TypeParam all[4]; // Made of each other in every way, beside strings that share nothing.
    std::string models[4];
    for (int step = 0; step < 20'000; ++step) {
        const auto a = random() % 4, b = random() % 4;
        const auto offset = random() % (models[b].size() + 3), size = random() % 40;
        switch (models[a].size() > 1000 ? 0 : random() % 5) {
        case 0: // Around the size that is stored in place; zeros and bytes beyond ASCII, too.
            models[a].assign(random() % 2 ? size : 12 + random() % 6, "\0ab\xC3"[random() % 4]);
            all[a] = TypeParam(std::string_view(models[a]));
            break;
        case 1:
            append(all[a], all[b].view()); // Also itself: within its capacity and beyond.
            models[a] += std::string(models[b]);
            break;
        case 2:
            all[a] = part(all[b], offset, size); // Also of itself: the last holder may use the whole buffer.
            models[a] = offset < models[b].size() ? models[b].substr(offset, size) : "";
            break;
        case 3: change(all[a], models[a]); break;
        default: all[a] = TypeParam(std::move(all[b])); models[a] = std::exchange(models[b], a == b ? models[b] : "");
        }
        for (int i = 0; i < 4; ++i) ASSERT_EQ(all[i].view(), models[i]) << step;
        ASSERT_TRUE((all[a] <=> all[b]) == (models[a] <=> models[b])) << "by unsigned bytes";
    }
    EXPECT_THROW(ByteArray().reserve(std::size_t(1) << 32), fn::RangeException);
}

TEST(CutText, LeavesWholeCharactersAndOfOtherBytesAllButAFew)
{
    const std::size_t expected[] = { 0, 1, 1, 1, 4, 4, 4, 4, 8, 8 };
    for (std::size_t most = 0; most < std::size(expected); ++most)
        EXPECT_EQ(fn::cutText("a\u20ac\U0001f600", most).size(), expected[most]) << most;
    EXPECT_EQ(fn::cutText("\x80\x80\x80\x80\x80\x80", 5).size(), 2u);
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

} // namespace
