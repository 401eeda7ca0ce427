// What can break here: an order that is none, a change that shows in a copy, a lossy conversion, entries lost where runs split.
#include "base/exceptions.h"
#include "foundation/time/timestamp.h"
#include "foundation/value.h"
#include "foundation/value_map.h"
#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <random>

namespace {

using fn::Value;
using fn::ValueMap;

Value nested(int levels, Value innermost)
{
    for (int i = 0; i < levels; ++i)
        innermost = i % 2 ? Value::array({ innermost }) : Value::map({ { "in", innermost } });
    return innermost;
}

TEST(Value, HasOneOrderOverAllKinds)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    constexpr double twoTo53 = 9007199254740992;
    constexpr double twoTo63 = 9223372036854775808.0;
    // Ascending; within a group all are equal.
    const std::vector<std::vector<Value>> groups = { { Value() }, { false }, { true }, { -infinity }, { -1e300 },
        { std::nextafter(-twoTo63, -infinity) }, { INT64_MIN, -twoTo63 }, { -9007199254740993 }, { -twoTo53 }, { -1.5 },
        { -1, -1.0 }, { std::numeric_limits<double>::denorm_min() * -1 }, { 0, 0u, 0.0, -0.0 }, { 1, 1u, 1.0, 1.0f },
        { 1.5 }, { 9007199254740991 }, { twoTo53, 9007199254740992 }, { 9007199254740993 }, { INT64_MAX },
        { twoTo63, std::uint64_t(INT64_MAX) + 1 }, { std::uint64_t(INT64_MAX) + 2 }, { UINT64_MAX }, { 2 * twoTo63 },
        { infinity }, { std::nan(""), -std::nan("1") }, { "" }, { "a" }, { "a longer text than fits in place" },
        { "b" }, { "\xFF" }, { fn::ByteArray() }, { fn::ByteArray("a") }, { Value(Value::ARRAY), Value::array({}) },
        { Value::array({ 1 }), Value::array({ 1.0 }) }, { Value::array({ 1, Value::array({ 2 }) }) },
        { Value::array({ 1, Value::array({ 2, 0 }) }) }, { Value::array({ 2 }) }, { Value(Value::MAP) },
        { Value::map({ { 1, 2 } }), Value::map({ { 1.0, 5 }, { 1u, 2 } }) },
        { Value::map({ { 1, 2 }, { 2, 1 } }), Value::map({ { 2, 1 }, { 1, 2 } }) }, { Value::map({ { 1, 3 } }) },
        { Value::map({ { 2, 0 } }) } };
    std::vector<std::pair<std::size_t, Value>> all;
    for (std::size_t group = 0; group < groups.size(); ++group) {
        for (const auto& value : groups[group]) all.emplace_back(group, value);
    }
    for (const auto& [a, left] : all) {
        for (const auto& [b, right] : all)
            EXPECT_EQ(left <=> right, a <=> b) << left.toString() << " and " << right.toString();
    }
}

TEST(Value, ChangesShowInNoCopy)
{
    Value document = Value::map({ { "list", Value::array({ 1, 2 }) }, { "text", "some text, longer than in place" } });
    const Value before = document;
    Value list = document.at("list");
    list.append(3);
    document.set("list", list);
    document.set("list", document.at("list")); // From within itself.
    document = document.get("missing", document); // So is this.
    document.mutableEntries().find("list")->append(4);
    EXPECT_EQ(before.at("list"), Value::array({ 1, 2 }));
    EXPECT_EQ(list, Value::array({ 1, 2, 3 }));
    document = document.at("list");
    document.append(document);
    EXPECT_EQ(document, Value::array({ 1, 2, 3, 4, Value::array({ 1, 2, 3, 4 }) }));
    EXPECT_FALSE(document.remove("list"));

    // The last copy of what another copy has emptied.
    Value map = before, again = map;
    map.mutableEntries().clear();
    again = map;
    again.set(1, 2);
    list.mutableElements().clear();
    again = list;
    again.append(1);
    EXPECT_TRUE(map.empty() && list.empty());
}

/// By the order of all numbers, which is exact.
template <typename T> void expectConvertedOrRefused(const Value& number)
{
    const bool fits = number >= Value(std::numeric_limits<T>::min()) && number <= Value(std::numeric_limits<T>::max());
    if (fits && number.toDouble() == std::trunc(number.toDouble()))
        EXPECT_EQ(Value(number.to<T>()), number);
    else
        EXPECT_THROW(number.to<T>(), fn::RangeException) << number.toString();
}

TEST(Value, ConvertsWithoutLossOrNotAtAll)
{
    for (const Value& number : std::vector<Value> { -0.0, -3.0, -1, 127, 128, -128.0, -129, 1.5, 255, 256, 1e300,
             std::nan(""), INT64_MIN, INT64_MAX, UINT64_MAX, -9223372036854775808.0, 9223372036854774784.0,
             9223372036854775808.0, 18446744073709551616.0 }) {
        expectConvertedOrRefused<std::int8_t>(number);
        expectConvertedOrRefused<std::uint8_t>(number);
        expectConvertedOrRefused<std::int64_t>(number);
        expectConvertedOrRefused<std::uint64_t>(number);
    }
    for (const Value& value : { Value("1"), Value(fn::ByteArray()), Value(Value::MAP), Value(fn::Timestamp(1)) }) {
        EXPECT_THROW(value.to<int>(), fn::RangeException);
        EXPECT_THROW(value.toDouble(), fn::RangeException);
    }
    EXPECT_THROW(Value(Value::ARRAY).toBool(), fn::RangeException);
    EXPECT_TRUE(Value("on").toBool() && Value(true).to<int>() == 1 && Value().to<unsigned>() == 0);
    EXPECT_FALSE(Value(0.0).toBool());
    EXPECT_TRUE(Value().asString() == "" && Value(2.5).asString() == "2.5");
}

TEST(Value, NestsDeeperThanTheStackReaches)
{
    constexpr int levels = 200'000;
    const auto first = nested(levels, 1);
    auto second = nested(levels, 1);
    EXPECT_EQ(first, second);
    EXPECT_LT(first, nested(levels, 2));
    second.append(1);
    EXPECT_LT(first.toString().size(), 10000u);
}

TEST(Value, TextForPeopleIsBoundedAndQuotedInsideContainers)
{
    EXPECT_EQ(Value::array({ Value(), "a\"\\\n\x01", fn::ByteArray("\x01"), 1.5 }).toString(),
        R"([nil, "a\"\\\n\x01", 01, 1.5])");
    const Value wide = Value::Array(100, Value(Value::Array(100'000, Value(7))));
    EXPECT_LT(wide.toString().size(), 10000u);
    EXPECT_LT(wide.detailInfo().size(), 300u);
}

void expectSame(const ValueMap& map, const std::map<int, int>& expected)
{
    ASSERT_EQ(map.size(), expected.size());
    auto next = expected.begin();
    for (const auto& entry : map) {
        ASSERT_EQ(entry.key, Value(next->first)) << "order";
        ASSERT_EQ(entry.value, Value((next++)->second));
        ASSERT_EQ(map.find(entry.key), &entry.value);
    }
}

TEST(ValueMap, HoldsWhatWasSetInEveryHistory)
{
    for (unsigned seed = 0; seed < 12; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        std::map<int, int> expected;
        ValueMap map;
        const int keys = seed % 2 ? 50 : 2000; // One run, and many.
        const auto fill = seed % 4; // In any order, from either end.
        for (int phase = 0; phase < 4; ++phase) {
            const ValueMap copy = map;
            const auto before = expected;
            const auto removals = phase % 2 ? 7u : 2u; // Of 10: grows, then shrinks to a few entries a run.
            for (int i = 0; i < 3000; ++i) {
                const int any = static_cast<int>(random() % static_cast<unsigned>(keys));
                const int key = phase > 0 || fill > 1 ? any : fill == 0 ? i % keys : keys - 1 - i % keys;
                if (random() % 10 < removals) {
                    ASSERT_EQ(map.remove(key), expected.erase(key) == 1);
                    continue;
                }
                if (i % 3)
                    map.set(key, i);
                else
                    map[key] = i;
                expected[key] = i;
            }
            ASSERT_NO_FATAL_FAILURE(expectSame(map, expected));
            ASSERT_NO_FATAL_FAILURE(expectSame(copy, before)) << "a copy";
            ASSERT_EQ(map.find(-1), nullptr);
            ASSERT_EQ(map.find(keys), nullptr);
        }
        ValueMap moved = std::move(map);
        EXPECT_TRUE(map.empty() && map.begin() == map.end());
        for (const auto& [key, value] : expected) EXPECT_TRUE(moved.remove(key));
        EXPECT_TRUE(moved.empty() && moved.begin() == moved.end());
        moved.set("x", 1);
        EXPECT_EQ(moved.size(), 1U);
    }
}

} // namespace
