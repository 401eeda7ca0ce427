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

TEST(StreamForm, IsReadBackAndTakesNothingThatWouldNotFit)
{
    const TypedByteArray image(fn::ByteArray("bytes"), "image/png");
    fn::ByteArray written;
    fn::ByteArrayOutputStream stream(written);
    image.serialize(stream);
    fn::MemoryInputStream again(written);
    EXPECT_EQ(TypedByteArray::deserialize(again), image);
    for (const auto& value : { fn::Value(1LL << 31), fn::Value(0.5), fn::Value("1") }) {
        fn::ByteArray bytes;
        fn::ByteArrayOutputStream output(bytes);
        for (const auto& field : { value, fn::Value(1) }) fn::mpack::Serializer(output).serialize(field);
        fn::MemoryInputStream input(bytes);
        EXPECT_THROW(Fraction::deserialize(input), fn::RangeException) << value;
    }
}

} // namespace
