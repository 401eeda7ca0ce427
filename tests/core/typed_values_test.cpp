// What can break here: a product that is widened or overflows, an order that looks at validity where it must not (or
// the other way round), a division that traps, fields that come back swapped or from a stream that has ended.
#include "core/fraction.h"
#include "core/typed_byte_array.h"
#include "foundation/exceptions.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/serializer.h"
#include <gtest/gtest.h>
#include <initializer_list>
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
    stream.flush();
    return bytes;
}

template <typename T> fn::ByteArray streamForm(const T& object)
{
    fn::ByteArray bytes;
    fn::ByteArrayOutputStream stream(bytes);
    object.serialize(stream);
    stream.flush();
    return bytes;
}

template <typename T> T readBack(const fn::ByteArray& bytes)
{
    fn::MemoryInputStream stream(bytes);
    return T::deserialize(stream);
}

/// Message of the exception E that reading `bytes` as a T throws.
template <typename T, typename E> std::string refusal(const fn::ByteArray& bytes)
{
    try {
        readBack<T>(bytes);
    } catch (const E& e) {
        return e.message().toStdString();
    }
    return "nothing thrown";
}

TEST(Fraction, ComparisonsWrapIn32BitsAndLookAtValidityOnlyWhereTheyShould)
{
    struct Row {
        Fraction a, b;
        bool equal, less, lessOrEqual, greater, greaterOrEqual;
    };
    for (const auto& row : std::initializer_list<Row> {
             { { 1, 2 }, { 2, 4 }, true, false, true, false, true },
             { { 1, 3 }, { 1, 2 }, false, true, true, false, false },
             { { -1, 2 }, { 1, 2 }, false, true, true, false, false },
             // Invalid against invalid: equal, but still ordered by the products (0 against 0).
             { { 1, 0 }, { 5, 0 }, true, false, true, false, true },
             // Exactly one invalid: never equal, though the products of 0/0 are equal.
             { { 0, 0 }, { 1, 2 }, false, false, false, true, true },
             { { 1, 0 }, { 0, 1 }, false, false, false, true, true },
             { { -1, 0 }, { 0, 1 }, false, true, true, false, false },
             // 65536 * 65536 is 0 modulo 2^32, 65536 * 32768 is the least number.
             { { 65536, 1 }, { 0, 65536 }, true, false, true, false, true },
             { { 65536, 1 }, { 0, 32768 }, false, true, true, false, false },
             { { least, -1 }, { least, -1 }, true, false, true, false, true },
         }) {
        SCOPED_TRACE(row.a.toString().toStdString() + " and " + row.b.toString().toStdString());
        EXPECT_EQ(row.a == row.b, row.equal);
        EXPECT_EQ(row.a != row.b, !row.equal);
        EXPECT_EQ(row.a < row.b, row.less);
        EXPECT_EQ(row.a <= row.b, row.lessOrEqual);
        EXPECT_EQ(row.a > row.b, row.greater);
        EXPECT_EQ(row.a >= row.b, row.greaterOrEqual);
    }
}

TEST(Fraction, IsAKeyByItsExactSize)
{
    // Ascending; within a group all are one key. Most products of them do not fit in 32 bits.
    const std::vector<std::vector<Fraction>> groups = { { { least, 1 } }, { { most, -1 } },
        { { -1, 2 }, { 1, -2 }, { 1 << 30, least } }, { { 0, 5 }, { 0, least } }, { { 1, most } },
        { { 1, 2 }, { 2, 4 }, { -1, -2 } }, { { 23976, 1000 } }, { { 2400000, 100100 }, { 24000, 1001 } },
        { { 2997000, 100000 } }, { { 30000, 1001 } }, { { 5994006, 100000 } }, { { most, 1 } }, { { least, -1 } },
        { { 0, 0 }, { 7, 0 }, { -7, 0 } } };
    for (std::size_t a = 0; a < groups.size(); ++a) {
        for (std::size_t b = 0; b < groups.size(); ++b) {
            for (const auto& left : groups[a]) {
                for (const auto& right : groups[b]) {
                    EXPECT_EQ(fn::Value(left) <=> fn::Value(right), a <=> b) << left.toString() << right.toString();
                }
            }
        }
    }
}

TEST(Fraction, ReducingFollowsTheTruncatingAlgorithmAndNeverTraps)
{
    struct Row {
        Fraction fraction;
        int divisor;
        const char* reduced;
    };
    for (const auto& row :
        std::initializer_list<Row> { { { 4, 6 }, 2, "2/3" }, { { 0, 5 }, 5, "0/1" }, { { 3, -6 }, 3, "1/-2" },
            { { -3, 6 }, 6, "0/1" }, { { 1920, 1080 }, 120, "16/9" }, { { 0, 0 }, 0, "0/0" }, { { 0, -7 }, 0, "0/-7" },
            { { 7, 0 }, 7, "1/0" }, { { -1, least }, -1, "-1/-2147483648" }, { { least, least }, least, "1/1" },
            { { least, 1 }, 1, "-2147483648/1" }, { { most, most }, most, "1/1" } }) {
        SCOPED_TRACE(row.fraction.toString().toStdString());
        EXPECT_EQ(row.fraction.greatestCommonDivisor(), row.divisor);
        EXPECT_EQ(row.fraction.reduce().toString(), row.reduced);
    }
    EXPECT_EQ(Fraction(7, 0).asDouble(), 0.0);
    EXPECT_EQ(Fraction(least, -1).asDouble(), 2147483648.0);
}

TEST(Fraction, TextThatIsNoFractionReadsAsInvalid)
{
    struct Row {
        const char* text;
        const char* read;
    };
    for (const auto& row : std::initializer_list<Row> { { "16/9", "16/9" }, { " -4/+6 ", "-4/6" }, { "16", "0/0" },
             { "", "0/0" }, { "1/2/3", "0/0" }, { "1/2/", "0/0" }, { "/2", "0/2" }, { "/", "0/0" }, { "x/9", "0/9" },
             { "2147483648/1", "0/1" } }) {
        EXPECT_EQ(Fraction::fromString(row.text).toString(), row.read) << row.text;
    }
}

TEST(Fraction, StreamFormTakesLosslessIntegersOnly)
{
    EXPECT_EQ(streamForm(Fraction(16, -9)), packed({ 16, -9 }));
    EXPECT_EQ(readBack<Fraction>(streamForm(Fraction(least, most))).toString(), "-2147483648/2147483647");
    EXPECT_EQ(readBack<Fraction>(packed({ fn::Value(), true })).toString(), "0/1");
    EXPECT_EQ(readBack<Fraction>(packed({ 3.0, 4u })).toString(), "3/4");

    const std::string loss = "Value can not be converted to requested type without loss";
    const std::string kind = "Value can not be implicitly converted to integral type";
    for (const fn::Value& value : { fn::Value(1LL << 31), fn::Value(0.5), fn::Value(UINT64_MAX) }) {
        EXPECT_EQ((refusal<Fraction, fn::RangeException>(packed({ value, 1 }))), loss);
        EXPECT_EQ((refusal<Fraction, fn::RangeException>(packed({ 1, value }))), loss);
    }
    EXPECT_EQ((refusal<Fraction, fn::RangeException>(packed({ "1", 1 }))), kind);
    EXPECT_EQ((refusal<Fraction, fn::EndOfStreamException>(packed({ 1 }))), "Unexpected end of stream");
}

TEST(TypedByteArray, KeepsTypeAndBytesTogether)
{
    const fn::ByteArray bytes(std::string_view("\x01\xff", 2));
    TypedByteArray image(bytes, "image/png");
    EXPECT_EQ(image.toString(), "image/png 01ff");
    EXPECT_EQ(readBack<TypedByteArray>(streamForm(image)), image);
    EXPECT_EQ(streamForm(image), packed({ "image/png", bytes }));

    const fn::Value boxed(image);
    EXPECT_TRUE(boxed.isBoxed<TypedByteArray>());
    EXPECT_FALSE(boxed.isBoxed<fn::ByteArray>());
    EXPECT_EQ(boxed, fn::Value(TypedByteArray(bytes, "image/png")));

    image.setMimeType("");
    EXPECT_EQ(image.toString(), "01ff");
    EXPECT_NE(boxed, fn::Value(image));
    EXPECT_EQ(TypedByteArray(2u).toString(), "0000");
    EXPECT_EQ(TypedByteArray("text/plain").toString(), "text/plain ");
}

TEST(TypedByteArray, StreamFormRefusesAnythingButBytes)
{
    EXPECT_EQ(readBack<TypedByteArray>(packed({ fn::Value(), fn::ByteArray() })).toString(), "");
    for (const fn::Value& value : { fn::Value(), fn::Value("text"), fn::Value(1), fn::Value(fn::Value::MAP) }) {
        EXPECT_EQ((refusal<TypedByteArray, fn::RangeException>(packed({ "a/b", value }))), "Invalid boxed type");
    }
    EXPECT_EQ((refusal<TypedByteArray, fn::EndOfStreamException>(packed({ "a/b" }))), "Unexpected end of stream");
}

} // namespace
