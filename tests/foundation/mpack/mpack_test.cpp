// What can break here: a form read or written wrongly at the border of two, hostile bytes that crash or make us allocate,
// an extension that takes or leaves bytes of its neighbours.
#include "foundation/exceptions.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/mpack/serializer.h"
#include "foundation/time/timestamp.h"
#include "foundation/value_map.h"
#include <gtest/gtest.h>

namespace {

using fn::ByteArray;
using fn::Value;

ByteArray encode(const Value& value, fn::mpack::ValueSerializer* hook = nullptr)
{
    ByteArray bytes;
    fn::ByteArrayOutputStream stream(bytes);
    fn::mpack::Serializer(stream, hook).serialize(value);
    stream.flush();
    return bytes;
}

Value decode(std::string_view bytes, fn::mpack::ValueDeserializer* hook = nullptr)
{
    fn::MemoryInputStream stream(bytes.data(), bytes.size());
    auto value = fn::mpack::Deserializer(stream, hook).deserialize();
    EXPECT_TRUE(value.has_value() && stream.remaining() == 0u);
    return value.value_or(Value());
}

std::string repeated(std::string_view unit, int times)
{
    std::string result;
    while (times-- > 0) result += unit;
    return result;
}

struct Marker : fn::RefCountedObject {
    ~Marker() override = default;
};

/// Writes markers as extension 5 of `size` bytes 'm'.
struct MarkerWriter : fn::mpack::ValueSerializer {
    std::int8_t typeForValue(const Value& value) override
    {
        EXPECT_TRUE(value.kind() == Value::Kind::Boxed || value.kind() == Value::Kind::Object);
        return value.isObject() ? 5 : -1;
    }
    void serializeValue(const Value&, fn::OutputStream& stream) override { stream.write(std::string(size, 'm')); }
    std::size_t size = 0;
};

/// Reads `wanted` bytes of each extension.
struct MarkerReader : fn::mpack::ValueDeserializer {
    Value deserializeValue(std::int8_t type, std::uint32_t size, fn::InputStream& stream) override
    {
        ++calls;
        EXPECT_EQ(type, 5);
        EXPECT_EQ(stream.remaining(), size);
        return stream.readString(wanted);
    }
    std::size_t wanted = 0;
    int calls = 0;
};

TEST(MPack, ReadsFormsThatItDoesNotWrite)
{
    using namespace std::literals;
    EXPECT_EQ(decode("\xCA\x3F\xC0\x00\x00"sv), Value(1.5));
    EXPECT_EQ(decode("\xD3\x00\x00\x00\x00\x00\x00\x00\x05"sv), Value(5));
    EXPECT_EQ(decode("\xCF\x00\x00\x00\x00\x00\x00\x00\x05"sv).kind(), Value::Kind::Int);
    EXPECT_EQ(decode("\xDB\x00\x00\x00\x01x"sv), Value("x"));
    EXPECT_EQ(decode("\xDF\x00\x00\x00\x01\x01\x02"sv), Value::map({ { 1, 2 } }));
    EXPECT_EQ(decode("\xC7\x03\x05zzz"sv), Value()); // An extension that nobody knows.
    // Of equal keys the last one wins, whatever their forms and order.
    EXPECT_EQ(decode("\x84\x02\x03\x01\x04\xCB\x3F\xF0\x00\x00\x00\x00\x00\x00\x05\xCC\x01\x06"sv),
        Value::map({ { 1, 6 }, { 2, 3 } }));
}

TEST(MPack, EveryCutIsAnEndOfStreamAndNothingElse)
{
    const auto bytes = encode(Value::map({ { 1, Value::array({ 300, 70000, -5, 1.5, true, Value() }) },
        { "key", std::string(40, 'x') }, { 3, ByteArray(300u) }, { 4, fn::Timestamp(1'500'000) } }));
    for (std::size_t cut = 1; cut < bytes.size(); ++cut) {
        EXPECT_THROW(decode(bytes.view().substr(0, cut)), fn::EndOfStreamException) << cut;
    }
    fn::MemoryInputStream empty(nullptr, 0);
    EXPECT_FALSE(fn::mpack::Deserializer(empty).deserialize());
    try {
        decode("\x92\x01\xC1");
        FAIL();
    } catch (const fn::DataFormatException& e) {
        EXPECT_EQ(*e.find<fn::DetailInfo>(), "Offset: 3");
    }
}

TEST(MPack, LyingSizesAreRefusedBeforeTheirBody)
{
    MarkerReader reader;
    for (const char* code : { "\xDD", "\xDF", "\xDB", "\xC6", "\xC9" }) {
        for (const int depth : { 0, 400 }) {
            const auto bytes = repeated("\x92", depth) + code + "\xFF\xFF\xFF\xFF\xD4\x05mm";
            EXPECT_THROW(decode(bytes, &reader), fn::EndOfStreamException);
        }
    }
    // An entry takes two bytes at least.
    EXPECT_THROW(decode(std::string("\xDE\x00\x02\xD4\x05m", 6), &reader), fn::EndOfStreamException);
    EXPECT_EQ(reader.calls, 0);
}

TEST(MPack, BoundsTheValuesOfAllContainersTogether)
{
    using namespace std::literals;
    const auto read = [](std::string_view bytes, std::uint64_t most) {
        fn::MemoryInputStream stream(bytes.data(), bytes.size());
        fn::mpack::Deserializer deserializer(stream);
        deserializer.setMaxValues(most);
        return deserializer.deserialize();
    };
    const auto nestedDocument = "\x92\x81\x01\x02\x93\x01\x02\x03"sv; // [{1: 2}, [1, 2, 3]]: 2 + 2 + 3 values.
    EXPECT_TRUE(read(nestedDocument, 7));
    EXPECT_THROW(read(nestedDocument, 6), fn::DataFormatException);
    ByteArray bytes;
    fn::ByteArrayOutputStream stream(bytes);
    fn::mpack::Serializer serializer(stream);
    serializer.setMaxValues(6);
    EXPECT_THROW(serializer.serialize(*read(nestedDocument, 7)), fn::DataFormatException) << "nobody would read it";
    // What is announced is refused before it is looked at, whatever follows.
    EXPECT_THROW(read("\xdd\xff\xff\xff\xff"sv, 1'000), fn::DataFormatException);
    EXPECT_THROW(read("\xdf\xff\xff\xff\xff"sv, 1'000), fn::DataFormatException);
}

TEST(MPack, ReadersAndWritersAgreeOnTheDepth)
{
    const int most = fn::mpack::maxDepth;
    for (const std::string_view level : { "\x91", "\x81\x01" }) {
        const auto deepest = decode(repeated(level, most) + "\x01");
        EXPECT_EQ(encode(deepest).view(), repeated(level, most) + "\x01");
        EXPECT_THROW(decode(repeated(level, most + 1) + "\x01"), fn::DataFormatException);
        EXPECT_THROW(encode(Value::array({ deepest })), fn::DataFormatException);
    }
    EXPECT_THROW(decode(repeated("\x91", 1'000'000)), fn::DataFormatException);
    EXPECT_THROW(decode(repeated("\x81", 1'000'000)), fn::DataFormatException); // Maps as keys.
}

TEST(MPack, ALargePayloadIsASliceOfTheBytesRead)
{
    for (const unsigned size : { 40u, 1000u }) {
        const auto bytes = encode(Value::map({ { 1, std::string(100, 'x') }, { 8, ByteArray(size) } }));
        fn::MemoryInputStream stream(bytes);
        const auto value = fn::mpack::Deserializer(stream).deserialize();
        const auto& payload = value->at(8).byteArray();
        EXPECT_EQ(payload, ByteArray(size));
        const bool isSlice = payload.data() >= bytes.data() && payload.data() < bytes.data() + bytes.size();
        EXPECT_EQ(isSlice, size == 1000u);
    }
}

TEST(MPack, TimestampsComeBackExactlyOverTheirWholeRange)
{
    const std::pair<std::int64_t, std::size_t> rows[] = { { 0, 6 }, { 4294967295'000000, 6 }, { 4294967296'000000, 10 },
        { 1, 10 }, { 17179869183'999999, 10 }, { 17179869184'000000, 15 }, { -1, 15 }, { INT64_MAX, 15 },
        { INT64_MIN, 15 } };
    for (const auto& [microseconds, size] : rows) {
        const auto bytes = encode(fn::Timestamp(microseconds));
        EXPECT_EQ(bytes.size(), size) << microseconds;
        EXPECT_EQ(decode(bytes.view()).boxed<fn::Timestamp>().microseconds(), microseconds);
    }
    const std::string_view beyond = "\xC7\x0C\xFF\x00\x00\x00\x00\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF";
    for (const auto& bad : { std::string("\xD5\xFF\x01\x01"), std::string("\xD7\xFF\xEE\xEE\xEE\xEE\x01\x01\x01\x01"),
             std::string(beyond.data(), 15) }) {
        EXPECT_THROW(decode(bad), fn::DataFormatException);
    }
}

TEST(MPack, ExtensionsKeepToTheirBytes)
{
    MarkerWriter writer;
    MarkerReader reader;
    const Value marker(fn::makeAuto<Marker>());
    for (const std::size_t size : { 1, 2, 3, 4, 8, 15, 16, 17, 255, 256, 65535, 65536 }) {
        writer.size = size;
        reader.wanted = size / 2;
        const auto bytes = encode(Value::array({ marker, fn::Timestamp(0), 7 }), &writer);
        const auto read = decode(bytes.view(), &reader);
        EXPECT_EQ(read[0].string().view(), std::string(size / 2, 'm'));
        EXPECT_EQ(read[1], Value(fn::Timestamp(0)));
        EXPECT_EQ(read[2], Value(7));
        reader.wanted = size + 1;
        EXPECT_THROW(decode(bytes.view(), &reader), fn::EndOfStreamException);
    }
    writer.size = 0;
    reader.wanted = 0;
    EXPECT_EQ(decode(encode(marker, &writer).view(), &reader), Value(""));
    try {
        encode(marker);
        FAIL();
    } catch (const fn::DataFormatException& e) {
        EXPECT_EQ(e.message(), "Unsupported value type");
    }
}

} // namespace
