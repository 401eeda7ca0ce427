#include "core/simple_property_container.h"
#include <gtest/gtest.h>

namespace {

class Properties final : public core::SimplePropertyContainer {
public:
    const std::map<fn::String, fn::Value>& propertyMap() const override { return _map; }
    std::map<fn::String, fn::Value>& propertyMap() override { return _map; }

private:
    std::map<fn::String, fn::Value> _map;
};

TEST(PropertyContainer, GivesTheStoredValueOrTheVeryDefaultAndTellsKindsApart)
{
    Properties properties;
    const fn::Value fallback("none");
    EXPECT_EQ(&properties.property("size", fallback), &fallback);
    for (const int size : { 1, 2 }) properties.setProperty("size", size);
    properties.setProperty("a", fn::Value());
    EXPECT_EQ(properties.property("size", fallback), fn::Value(2));
    EXPECT_EQ(properties.propertyNames(), (std::vector<fn::String> { "a", "size" }));
    const core::PropertyContainer& base = properties;
    EXPECT_TRUE(base.hasProperty("size", fn::Value::INT) && base.hasProperty("a", fn::Value::NIL));
    EXPECT_FALSE(base.hasProperty("size", fn::Value::STRING) || base.hasProperty("missing", fn::Value::NIL));
    properties.removeProperty("size");
    EXPECT_EQ(properties.propertyNames(), std::vector<fn::String> { "a" });
}

} // namespace
