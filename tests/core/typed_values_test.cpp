// What can break here: a division that traps, fields that come back swapped or from a stream that has ended.
#include "base/exceptions.h"
#include "core/services/fraction.h"
#include "core/services/typed_byte_array.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/serializer.h"
#include <gtest/gtest.h>
#include <limits>

namespace {

using core::Fraction;
using core::TypedByteArray;

constexpr int least = std::numeric_limits<int>::min();
constexpr int most = std::numeric_limits<int>::max();

fn::ByteArray packed(std::initializer_list<fn::Value> values)
{
    fn::ByteArray bytes;
    fn::ByteArrayOutputStream stream(bytes);
    fn::mpack::Serializer serializer(stream);
    for (const auto& value : values) serializer.serialize(value);
    return bytes;
}

template <typename T> fn::ByteArray streamForm(const T& object)
{
    fn::ByteArray bytes;
    fn::ByteArrayOutputStream stream(bytes);
    object.serialize(stream);
    return bytes;
}

template <typename T> T readBack(const fn::ByteArray& bytes)
{
    fn::MemoryInputStream stream(bytes);
    return T::deserialize(stream);
}

TEST(Fraction, ReducingFollowsTheTruncatingAlgorithmAndNeverTraps)
{
    const std::tuple<Fraction, int, const char*> rows[] = { { { 4, 6 }, 2, "2/3" }, { { 0, 5 }, 5, "0/1" },
        { { 3, -6 }, 3, "1/-2" }, { { -3, 6 }, 6, "0/1" }, { { 0, 0 }, 0, "0/0" }, { { 0, -7 }, 0, "0/-7" },
        { { 7, 0 }, 7, "1/0" }, { { -1, least }, -1, "-1/-2147483648" }, { { least, least }, least, "1/1" },
        { { least, 1 }, 1, "-2147483648/1" }, { { most, most }, most, "1/1" } };
    for (const auto& [fraction, divisor, reduced] : rows) {
        EXPECT_EQ(fraction.greatestCommonDivisor(), divisor) << fraction.toString();
        EXPECT_EQ(fraction.reduce().toString(), reduced) << fraction.toString();
    }
    EXPECT_EQ(Fraction(7, 0).asDouble(), 0.0);
    EXPECT_EQ(Fraction(least, -1).asDouble(), 2147483648.0);
    const std::pair<const char*, const char*> texts[] = { { " -4/+6 ", "-4/6" }, { "16", "0/0" }, { "1/2/", "0/0" },
        { "/2", "0/2" }, { "x/9", "0/9" }, { "2147483648/1", "0/1" } };
    for (const auto& [text, read] : texts) EXPECT_EQ(Fraction::fromString(text).toString(), read) << text;
}

TEST(StreamForm, IsReadBackAndTakesLosslessIntegersAndBytesOnly)
{
    const auto readFraction = [](std::initializer_list<fn::Value> values) {
        return readBack<Fraction>(packed(values)).toString();
    };
    EXPECT_EQ(streamForm(Fraction(16, -9)), packed({ 16, -9 }));
    EXPECT_EQ(readFraction({ least, most }), "-2147483648/2147483647");
    EXPECT_EQ(readFraction({ fn::Value(), true }), "0/1");
    EXPECT_EQ(readFraction({ 3.0, 4u }), "3/4");
    for (const auto& value : { fn::Value(1LL << 31), fn::Value(0.5), fn::Value(UINT64_MAX), fn::Value("1") }) {
        EXPECT_THROW(readFraction({ value, 1 }), fn::RangeException) << value;
        EXPECT_THROW(readFraction({ 1, value }), fn::RangeException) << value;
    }
    EXPECT_THROW(readFraction({ 1 }), fn::EndOfStreamException);

    const auto readBytes = [](const fn::ByteArray& form) { return readBack<TypedByteArray>(form); };
    const fn::ByteArray bytes(std::string_view("\x01\xff", 2));
    const TypedByteArray image(bytes, "image/png");
    EXPECT_EQ(readBytes(streamForm(image)), image);
    EXPECT_EQ(streamForm(image), packed({ "image/png", bytes }));
    EXPECT_EQ(readBytes(packed({ fn::Value(), fn::ByteArray() })).toString(), "");
    for (const auto& value : { fn::Value(), fn::Value("text"), fn::Value(1), fn::Value(fn::Value::MAP) })
        EXPECT_THROW(readBytes(packed({ "a/b", value })), fn::RangeException) << value;
    EXPECT_THROW(readBytes(packed({ "a/b" })), fn::EndOfStreamException);

    EXPECT_FALSE(fn::Value(image).isBoxed<fn::ByteArray>());
    EXPECT_EQ(fn::Value(image), fn::Value(TypedByteArray(bytes, "image/png")));
    EXPECT_NE(fn::Value(image), fn::Value(TypedByteArray(bytes, "")));
    EXPECT_EQ(image.toString(), "image/png 01ff");
    EXPECT_EQ(TypedByteArray(2u).toString(), "0000");
}

} // namespace
