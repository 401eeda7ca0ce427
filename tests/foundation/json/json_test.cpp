// What can break here: text that does not read back as what was written, an error that does not say where.
#include "base/exceptions.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/json/deserializer.h"
#include "foundation/json/serializer.h"
#include "foundation/mpack/hooks.h"
#include "foundation/time/timestamp.h"
#include "foundation/value_map.h"
#include <cmath>
#include <gmock/gmock.h>
#include <random>

namespace {

using fn::Value;

std::string write(const Value& value, bool indented = false)
{
    fn::ByteArray bytes;
    fn::ByteArrayOutputStream stream(bytes);
    fn::json::serialize(value, stream, indented);
    stream.flush();
    return std::string(bytes.view());
}

TEST(JSON, NumbersReadBackAsTheSameNumberOfTheSameKind)
{
    std::mt19937_64 random(1);
    std::vector<Value> numbers = { 0.0, -0.0, 1.0, -1.0, 1e15, 1e22, 1e-7, 5e-324, 1.7976931348623157e308, 0.1,
        9007199254740992.0, INT64_MIN, INT64_MAX, UINT64_MAX, 0 };
    while (numbers.size() < 5000) {
        const auto number = std::bit_cast<double>(random());
        if (std::isfinite(number)) numbers.push_back(number);
    }
    for (const auto& number : numbers) {
        const auto read = fn::json::deserialize(write(number));
        ASSERT_EQ(read, number);
        ASSERT_EQ(read.kind(), number.kind()) << number.toString();
        ASSERT_EQ(std::signbit(read.toDouble()), std::signbit(number.toDouble())) << number.toString();
    }
    EXPECT_EQ(write(0.1), "0.1");
}

TEST(JSON, WhatHasNoFormIsRefused)
{
    const auto nested = [](std::size_t levels) { return std::string(levels, '[') + std::string(levels, ']'); };
    const auto deepest = fn::json::deserialize(nested(fn::mpack::maxDepth));
    EXPECT_EQ(write(deepest), nested(fn::mpack::maxDepth));
    for (const Value& value : { Value(std::nan("")), Value(std::numeric_limits<double>::infinity()),
             Value::map({ { 1, 2 } }), Value(fn::ByteArray("x")), Value(fn::Timestamp(1)), deepest })
        EXPECT_THROW(write(Value::map({ { "in", Value::array({ value }) } })), fn::DataFormatException);
    for (const int levels : { fn::mpack::maxDepth + 1, 1'000'000 })
        EXPECT_THROW(fn::json::deserialize(nested(levels)), fn::DataFormatException);
}

TEST(JSON, ErrorsNameSourceLineAndColumn)
{
    using namespace std::string_view_literals;
    const std::pair<std::string_view, const char*> rows[] = { { "{\"a\": 1,\r\n  \"b\": nul}", "line 2, column 11" },
        { "[1, 2", "line 1, column" }, { "{} x", "line 1, column 4" }, { "[1e999]", "line 1, column" },
        { "\"\xFF\"", "line 1, column 2" }, { "", "line 1, column 1" }, { "[1]\0"sv, "line 1, column 4" } };
    for (const auto& [text, place] : rows) {
        EXPECT_THAT([&] { fn::json::deserialize(text, nullptr, "some.prefs"); },
            testing::ThrowsMessage<fn::DataFormatException>(testing::HasSubstr(std::string("\nsome.prefs: ") + place)));
    }
    EXPECT_EQ(fn::json::deserialize(R"({"k": 1, "a": 2, "k": 3})"), Value::map({ { "a", 2 }, { "k", 3 } }));
}

} // namespace
