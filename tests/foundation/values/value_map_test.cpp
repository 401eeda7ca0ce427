// What can break here: an entry lost, doubled or out of order where runs split and merge; a path that leads past a value of
// another kind and destroys it.
#include "foundation/exceptions.h"
#include "foundation/value_map.h"
#include <gtest/gtest.h>
#include <map>
#include <random>

namespace {

using fn::Value;
using fn::ValueMap;

void expectSame(const ValueMap& map, const std::map<int, int>& expected)
{
    std::map<int, int> found;
    auto next = expected.begin();
    for (const auto& [key, value] : map) {
        ASSERT_EQ(key, Value((next++)->first)) << "order";
        ASSERT_EQ(map.find(key), &value);
        found[key.to<int>()] = value.to<int>();
    }
    ASSERT_EQ(found, expected);
    ASSERT_EQ(map.size(), expected.size());
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

TEST(ValuePath, LeadsThroughMapsAndMakesThoseThatAreMissing)
{
    auto root = Value::map({ { "a", Value::map({ { "kept", 1 } }) }, { "nil", Value() } });
    const auto before = root;
    root.mapForPath("a.b.c").set("x", 2);
    root.mapForPath("nil").set("x", 3);
    root.mapForPath("..").set("x", 4); // Three empty keys.
    root.mapForPath("").set("top", 5);
    EXPECT_EQ(before, Value::map({ { "a", Value::map({ { "kept", 1 } }) }, { "nil", Value() } }));
    EXPECT_EQ(*root.valueForPathIfExists("a.kept"), Value(1));
    EXPECT_EQ(*root.valueForPathIfExists("a.b.c.x"), Value(2));
    EXPECT_EQ(*root.valueForPathIfExists("nil.x"), Value(3));
    EXPECT_EQ(*root.valueForPathIfExists("...x"), Value(4));
    EXPECT_EQ(root.valueForPathIfExists(""), &root);
    EXPECT_EQ(root.at("top"), Value(5));
    for (const auto* missing : { "b", "a.b.d", "a.kept.x", ".x", "a..b", "a." }) {
        EXPECT_EQ(root.valueForPathIfExists(missing), nullptr) << missing;
    }
}

TEST(ValuePath, AValueOfAnotherKindIsNeitherPassedNorReplaced)
{
    auto root = Value::map({ { "text", "secret" }, { "list", Value::array({ 1 }) } });
    const auto before = root;
    for (const auto* path : { "text", "text.a", "list.0", "list.a.b" }) {
        EXPECT_THROW(root.mapForPath(path), fn::RangeException) << path;
    }
    EXPECT_EQ(root, before);
}

} // namespace
