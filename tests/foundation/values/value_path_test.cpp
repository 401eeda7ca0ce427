// What can break here: a path that leads past a value of another kind and destroys it, a change seen through a copy.
#include "foundation/exceptions.h"
#include "foundation/value_map.h"
#include <gtest/gtest.h>

namespace {

using fn::Value;

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
