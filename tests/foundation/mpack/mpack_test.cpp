// What can break here: a form wrong at the border of two, hostile bytes that are believed; that we agree with ourselves alone.
// What lies about its size is the fuzz target's.
#include "base/exceptions.h"
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

constexpr std::uint64_t unbounded = UINT64_MAX;

ByteArray encode(const Value& value, std::uint64_t mostValues = unbounded)
{
    ByteArray bytes;
    fn::ByteArrayOutputStream stream(bytes);
    fn::mpack::Serializer serializer(stream);
    serializer.setMaxValues(mostValues);
    serializer.serialize(value);
    stream.flush();
    return bytes;
}

Value decode(std::string_view bytes, std::uint64_t mostValues = unbounded)
{
    fn::MemoryInputStream stream(bytes.data(), bytes.size());
    fn::mpack::Deserializer deserializer(stream);
    deserializer.setMaxValues(mostValues);
    auto value = deserializer.deserialize();
    EXPECT_TRUE(value.has_value() && stream.remaining() == 0u);
    return value.value_or(Value());
}

/// Documents with every kind that MessagePack knows.
class RandomValues {
public:
    explicit RandomValues(unsigned seed) : _random(seed) { }

    Value make(int levels)
    {
        switch (below(levels > 0 ? 9 : 7)) {
        case 0: return below(2) ? Value() : Value(below(2) == 0);
        case 1: return static_cast<std::int64_t>(_random()) >> below(64); // Every magnitude,
        case 2: return (std::uint64_t(1) << below(64)) - below(2); // and the numbers beside powers of two.
        case 3: return std::ldexp(-0.3 * static_cast<double>(_random()), static_cast<int>(below(2000)) - 1000);
        case 4: return text();
        case 5: return ByteArray(text());
        case 6: return fn::Timestamp(static_cast<std::int64_t>(_random()) >> below(64));
        case 7: {
            Value::Array elements(below(6));
            for (auto& element : elements) element = make(levels - 1);
            return elements;
        }
        default: {
            fn::ValueMap entries;
            for (auto left = below(6); left > 0; --left) entries.set(make(levels > 1), make(levels - 1));
            return entries;
        }
        }
    }

private:
    std::uint64_t below(std::uint64_t limit) { return _random() % limit; }
    fn::String text() { return std::string(below(20), static_cast<char>(_random())); }

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
    const auto check = [](const Value& value) {
        const auto bytes = encode(value);
        ASSERT_TRUE(repacked(bytes.view()) == bytes.view())
            << value.toString(); // Also: no form is longer than it must be.
        ASSERT_EQ(decode(bytes.view()), value);
        const auto step = bytes.size() / 50 + 1;
        for (std::size_t cut = 1; cut < bytes.size(); cut += step)
            ASSERT_THROW(decode(bytes.view().substr(0, cut)), fn::EndOfStreamException) << value.toString();
    };
    for (unsigned seed = 0; seed < 3000; ++seed) check(RandomValues(seed).make(4));
    for (const std::size_t size : { 0, 15, 16, 17, 31, 32, 255, 256, 65535, 65536 }) { // The borders of the forms.
        const std::string text(size, 'x');
        fn::ValueMap entries;
        for (std::size_t i = 0; i < size; ++i) entries.set(i, 7);
        for (const Value& value : { Value(text), Value(ByteArray(text)), Value(Value::Array(size)), Value(entries) })
            check(value);
    }
    fn::MemoryInputStream empty(nullptr, 0);
    EXPECT_FALSE(fn::mpack::Deserializer(empty).deserialize());
}

TEST(MPack, ReadsFormsThatItDoesNotWriteAndRefusesWhatIsNone)
{
    const std::pair<std::string_view, Value> rows[] = { { "\xCA\x3F\xC0\x00\x00"sv, 1.5 }, { "\xCC\x05"sv, 5 },
        { "\xD0\xFB"sv, -5 }, { "\xD3\x00\x00\x00\x00\x00\x00\x00\x05"sv, 5 }, { "\xDB\x00\x00\x00\x01x"sv, "x" },
        { "\xDF\x00\x00\x00\x01\x01\x02"sv, Value::map({ { 1, 2 } }) },
        // Of equal keys the last one wins, whatever their forms and order.
        { "\x84\x02\x03\x01\x04\xCB\x3F\xF0\x00\x00\x00\x00\x00\x00\x05\xCC\x01\x06"sv,
            Value::map({ { 1, 6 }, { 2, 3 } }) },
        { "\xC7\x0C\xFF\x00\x00\x03\xE8\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFB"sv, // 1,000 ns behind -5 s.
            fn::Timestamp(-4'999'999) } };
    for (const auto& [bytes, expected] : rows) {
        EXPECT_EQ(decode(bytes), expected);
        EXPECT_EQ(decode(bytes).kind(), expected.kind()) << expected.toString();
    }
    // A code that means nothing, and timestamps of a size, a fraction and a range that there is not.
    for (const auto bad : { "\x92\x01\xC1"sv, "\xD5\xFF\x01\x01"sv, "\xD7\xFF\xEE\xEE\xEE\xEE\x01\x01\x01\x01"sv,
             "\xC7\x0C\xFF\x00\x00\x00\x00\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv })
        EXPECT_THROW(decode(bad), fn::DataFormatException);
}

TEST(MPack, ReadersAndWritersBoundTheValuesOfAllContainersTogether)
{
    const auto document = "\x92\x81\x01\x02\x93\x01\x02\x03"sv; // [{1: 2}, [1, 2, 3]]: 2 + 2 + 3 values.
    EXPECT_EQ(encode(decode(document, 7), 7).view(), document);
    // What is announced is refused before it is looked at, whatever follows.
    for (const auto bytes : { document, "\xdd\xff\xff\xff\xff"sv, "\xdf\xff\xff\xff\xff"sv })
        EXPECT_THROW(decode(bytes, 6), fn::DataFormatException);
    EXPECT_THROW(encode(decode(document), 6), fn::DataFormatException) << "nobody would read it";
}

} // namespace
