// What can break here: a form wrong at the border of two, hostile bytes that crash or allocate; that we agree with ourselves alone.
#include "foundation/exceptions.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/mpack/serializer.h"
#include "foundation/time/timestamp.h"
#include "foundation/value_map.h"
#include <cmath>
#include <gtest/gtest.h>
#include <msgpack.h>
#include <random>

namespace {

using fn::ByteArray;
using fn::Value;
using namespace std::literals;

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

/// Documents with every kind that MessagePack knows, sizes around the borders of its forms included.
class RandomValues {
public:
    explicit RandomValues(unsigned seed) : _random(seed) { }

    Value make(int levels)
    {
        switch (below(levels > 0 ? 8 : 6)) {
        case 0: return below(2) ? Value() : Value(below(2) == 0);
        case 1: return static_cast<std::int64_t>(_random()) >> below(64); // Every magnitude,
        case 2: return (std::uint64_t(1) << below(64)) - below(2); // and the numbers beside powers of two.
        case 3: {
            const auto real = std::bit_cast<double>(_random());
            return std::isnan(real) ? 0.5 : real;
        }
        case 4: return std::string(size(levels), static_cast<char>(_random()));
        case 5: return ByteArray(std::string(size(levels), static_cast<char>(_random())));
        case 6: {
            Value::Array elements(below(100) ? below(6) : size(levels));
            for (auto& element : elements) element = elements.size() > 20 ? Value(7) : make(levels - 1);
            return elements;
        }
        default: {
            fn::ValueMap entries;
            const auto count = below(100) ? below(6) : size(levels);
            for (auto left = count; left > 0; --left)
                entries.set(count > 20 ? Value(left) : make(levels > 1), count > 20 ? Value(7) : make(levels - 1));
            return entries;
        }
        }
    }

private:
    std::uint64_t below(std::uint64_t limit) { return _random() % limit; }

    std::size_t size(int levels)
    {
        static constexpr std::size_t borders[] = { 0, 15, 16, 31, 32, 255, 256, 65535, 65536 };
        return below(8) ? below(20) : borders[below(levels > 2 ? 7 : std::size(borders))];
    }

    std::mt19937_64 _random;
};

/// The document as another implementation unpacks it and packs it again.
std::string repacked(std::string_view bytes)
{
    msgpack_unpacked unpacked;
    msgpack_unpacked_init(&unpacked);
    EXPECT_EQ(msgpack_unpack_next(&unpacked, bytes.data(), bytes.size(), nullptr), MSGPACK_UNPACK_SUCCESS);
    msgpack_sbuffer buffer;
    msgpack_sbuffer_init(&buffer);
    msgpack_packer packer;
    msgpack_packer_init(&packer, &buffer, msgpack_sbuffer_write);
    msgpack_pack_object(&packer, unpacked.data);
    std::string packed(buffer.data ? buffer.data : "", buffer.size);
    msgpack_sbuffer_destroy(&buffer);
    msgpack_unpacked_destroy(&unpacked);
    return packed;
}

TEST(MPack, AgreesWithAnIndependentImplementationByteForByteAndEveryCutIsAnEndOfStream)
{
    for (unsigned seed = 0; seed < 3000; ++seed) {
        RandomValues random(seed);
        const auto value = random.make(4);
        const auto bytes = encode(value);
        ASSERT_TRUE(repacked(bytes.view()) == bytes.view()) << seed; // Also: no form is longer than it must be.
        ASSERT_EQ(decode(bytes.view()), value) << seed;
        const auto step = bytes.size() / 50 + 1;
        for (std::size_t cut = 1; cut < bytes.size(); cut += step)
            ASSERT_THROW(decode(bytes.view().substr(0, cut)), fn::EndOfStreamException) << seed << ", " << cut;
    }
    fn::MemoryInputStream empty(nullptr, 0);
    EXPECT_FALSE(fn::mpack::Deserializer(empty).deserialize());
}

TEST(MPack, ReadsFormsThatItDoesNotWrite)
{
    const std::pair<std::string_view, Value> rows[] = { { "\xCA\x3F\xC0\x00\x00"sv, 1.5 }, { "\xCC\x05"sv, 5 },
        { "\xD0\xFB"sv, -5 }, { "\xD3\x00\x00\x00\x00\x00\x00\x00\x05"sv, 5 },
        { "\xCF\x00\x00\x00\x00\x00\x00\x00\x05"sv, 5 }, { "\xDB\x00\x00\x00\x01x"sv, "x" },
        { "\xDF\x00\x00\x00\x01\x01\x02"sv, Value::map({ { 1, 2 } }) },
        { "\xC7\x03\x05zzz"sv, Value() }, // An extension that nobody knows.
        // Of equal keys the last one wins, whatever their forms and order.
        { "\x84\x02\x03\x01\x04\xCB\x3F\xF0\x00\x00\x00\x00\x00\x00\x05\xCC\x01\x06"sv,
            Value::map({ { 1, 6 }, { 2, 3 } }) } };
    for (const auto& [bytes, expected] : rows) {
        EXPECT_EQ(decode(bytes), expected);
        EXPECT_EQ(decode(bytes).kind(), expected.kind()) << expected.toString();
    }
    try {
        decode("\x92\x01\xC1"); // A code that means nothing.
        FAIL();
    } catch (const fn::DataFormatException& e) {
        EXPECT_EQ(*e.find<fn::DetailInfo>(), "Offset: 3");
    }
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
    EXPECT_THROW(decode("\xDE\x00\x02\xD4\x05m"sv, &reader), fn::EndOfStreamException);
    EXPECT_EQ(reader.calls, 0);
}

TEST(MPack, ReadersAndWritersBoundTheValuesOfAllContainersTogether)
{
    const auto read = [](std::string_view bytes, std::uint64_t most) {
        fn::MemoryInputStream stream(bytes.data(), bytes.size());
        fn::mpack::Deserializer deserializer(stream);
        deserializer.setMaxValues(most);
        return deserializer.deserialize();
    };
    const auto document = "\x92\x81\x01\x02\x93\x01\x02\x03"sv; // [{1: 2}, [1, 2, 3]]: 2 + 2 + 3 values.
    EXPECT_TRUE(read(document, 7));
    EXPECT_THROW(read(document, 6), fn::DataFormatException);
    ByteArray bytes;
    fn::ByteArrayOutputStream stream(bytes);
    fn::mpack::Serializer serializer(stream);
    serializer.setMaxValues(6);
    EXPECT_THROW(serializer.serialize(decode(document)), fn::DataFormatException) << "nobody would read it";
    // What is announced is refused before it is looked at, whatever follows.
    for (const auto announced : { "\xdd\xff\xff\xff\xff"sv, "\xdf\xff\xff\xff\xff"sv })
        EXPECT_THROW(read(announced, 1'000), fn::DataFormatException);
}

TEST(MPack, ReadersAndWritersAgreeOnTheDepth)
{
    const int most = fn::mpack::maxDepth;
    const std::pair<const char*, const char*> levels[] = { { "\x91", "" }, { "\x81\x01", "" }, { "\x81", "\x01" } };
    for (const auto& [before, behind] : levels) { // In an array, as a value, as a key.
        const auto nested = [&](int depth) { return repeated(before, depth) + "\x01" + repeated(behind, depth); };
        const auto deepest = decode(nested(most));
        EXPECT_EQ(encode(deepest).view(), nested(most));
        EXPECT_THROW(decode(nested(most + 1)), fn::DataFormatException);
        EXPECT_THROW(encode(Value::array({ deepest })), fn::DataFormatException);
        EXPECT_THROW(encode(Value::map({ { deepest, 1 } })), fn::DataFormatException);
    }
    for (const auto* level : { "\x91", "\x81" }) // Also maps as keys.
        EXPECT_THROW(decode(repeated(level, 1'000'000)), fn::DataFormatException);
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
    EXPECT_EQ(decode("\xC7\x0C\xFF\x00\x00\x03\xE8\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFB"sv), // 1,000 ns behind -5 s.
        Value(fn::Timestamp(-4'999'999)));
    for (const auto bad : { "\xD5\xFF\x01\x01"sv, "\xD7\xFF\xEE\xEE\xEE\xEE\x01\x01\x01\x01"sv,
             "\xC7\x0C\xFF\x00\x00\x00\x00\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv }) {
        EXPECT_THROW(decode(bad), fn::DataFormatException);
    }
}

TEST(MPack, ExtensionsKeepToTheirBytes)
{
    MarkerWriter writer;
    MarkerReader reader;
    const Value marker(fn::makeAuto<Marker>());
    for (const std::size_t size : { 0, 1, 2, 3, 4, 8, 15, 16, 17, 255, 256, 65535, 65536 }) {
        writer.size = size;
        reader.wanted = size / 2;
        const auto bytes = encode(Value::array({ marker, fn::Timestamp(0), 7 }), &writer);
        EXPECT_EQ(
            decode(bytes.view(), &reader), Value::array({ std::string(size / 2, 'm'), Value(fn::Timestamp(0)), 7 }));
        reader.wanted = size + 1;
        EXPECT_THROW(decode(bytes.view(), &reader), fn::EndOfStreamException);
    }
    EXPECT_THROW(encode(marker), fn::DataFormatException);
}

} // namespace
