// What can break here: an entry lost, doubled or out of order where runs split and merge.
#include "foundation/value_map.h"
#include <gtest/gtest.h>
#include <map>
#include <random>

namespace {

using fn::Value;
using fn::ValueMap;

void expectSame(const ValueMap& map, const std::map<int, int>& expected)
{
    ASSERT_EQ(map.size(), expected.size());
    auto entry = map.begin();
    for (const auto& [key, value] : expected) {
        ASSERT_NE(entry, map.end());
        ASSERT_EQ(entry->key, Value(key));
        ASSERT_EQ(entry->value, Value(value));
        ASSERT_EQ(map.find(key), &entry->value);
        ++entry;
    }
    ASSERT_EQ(entry, map.end());
}

TEST(ValueMap, HoldsWhatWasSetInEveryHistory)
{
    for (unsigned seed = 0; seed < 12; ++seed) {
        std::mt19937 random(seed);
        std::map<int, int> expected;
        ValueMap map;
        const int keys = seed % 2 ? 50 : 2000; // One run, and many.
        for (int phase = 0; phase < 4; ++phase) {
            const auto removals = phase % 2 ? 7u : 2u; // Of 10: grows, then shrinks to a few entries a run.
            for (int i = 0; i < 3000; ++i) {
                const int key = static_cast<int>(random() % static_cast<unsigned>(keys));
                if (random() % 10 < removals) {
                    ASSERT_EQ(map.remove(key), expected.erase(key) == 1);
                } else if (i % 3) {
                    map.set(key, i);
                    expected[key] = i;
                } else {
                    map[key] = i;
                    expected[key] = i;
                }
            }
            ASSERT_NO_FATAL_FAILURE(expectSame(map, expected)) << seed;
            ASSERT_EQ(map.find(-1), nullptr);
            ASSERT_EQ(map.find(keys), nullptr);
        }
    }
}

TEST(ValueMap, FillsFromEitherEndAndEmpties)
{
    for (const bool ascending : { true, false }) {
        ValueMap map;
        std::map<int, int> expected;
        for (int i = 0; i < 1000; ++i) {
            const int key = ascending ? i : -i;
            map.set(key, i);
            expected[key] = i;
        }
        expectSame(map, expected);
        const ValueMap copy = map;
        ValueMap moved = std::move(map);
        EXPECT_TRUE(map.empty() && map.begin() == map.end());
        for (int i = 0; i < 1000; ++i) EXPECT_TRUE(moved.remove(ascending ? i : -i));
        EXPECT_TRUE(moved.empty() && moved.begin() == moved.end());
        moved.set("x", 1);
        EXPECT_EQ(moved.size(), 1u);
        expectSame(copy, expected);
    }
}

} // namespace
