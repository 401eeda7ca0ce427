// What can break here: that we agree with ourselves alone. Every document goes through another implementation.
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/mpack/serializer.h"
#include "foundation/time/timestamp.h"
#include "random_value.h"
#include <gtest/gtest.h>
#include <msgpack.h>

namespace {

using fn::Value;

Value fromTheirs(const msgpack_object& object)
{
    switch (object.type) {
    case MSGPACK_OBJECT_BOOLEAN: return object.via.boolean;
    case MSGPACK_OBJECT_POSITIVE_INTEGER: return object.via.u64;
    case MSGPACK_OBJECT_NEGATIVE_INTEGER: return object.via.i64;
    case MSGPACK_OBJECT_FLOAT32:
    case MSGPACK_OBJECT_FLOAT64: return object.via.f64;
    case MSGPACK_OBJECT_STR: return std::string_view(object.via.str.ptr, object.via.str.size);
    case MSGPACK_OBJECT_BIN: return fn::ByteArray(object.via.bin.ptr, object.via.bin.size);
    case MSGPACK_OBJECT_ARRAY: {
        Value array(Value::ARRAY);
        for (std::uint32_t i = 0; i < object.via.array.size; ++i) array.append(fromTheirs(object.via.array.ptr[i]));
        return array;
    }
    case MSGPACK_OBJECT_MAP: {
        Value map(Value::MAP);
        for (std::uint32_t i = 0; i < object.via.map.size; ++i) {
            map.set(fromTheirs(object.via.map.ptr[i].key), fromTheirs(object.via.map.ptr[i].val));
        }
        return map;
    }
    default: return {};
    }
}

/// What the other implementation unpacks, and what it packs of that again.
struct Theirs {
    explicit Theirs(std::string_view bytes)
    {
        msgpack_unpacked unpacked;
        msgpack_unpacked_init(&unpacked);
        EXPECT_EQ(msgpack_unpack_next(&unpacked, bytes.data(), bytes.size(), nullptr), MSGPACK_UNPACK_SUCCESS);
        value = fromTheirs(unpacked.data);
        msgpack_sbuffer buffer;
        msgpack_sbuffer_init(&buffer);
        msgpack_packer packer;
        msgpack_packer_init(&packer, &buffer, msgpack_sbuffer_write);
        msgpack_pack_object(&packer, unpacked.data);
        packed.assign(buffer.data ? buffer.data : "", buffer.size);
        msgpack_sbuffer_destroy(&buffer);
        msgpack_unpacked_destroy(&unpacked);
    }
    Value value;
    std::string packed;
};

TEST(MPack, AgreesWithAnIndependentImplementationByteForByte)
{
    for (unsigned seed = 0; seed < 3000; ++seed) {
        std::mt19937_64 random(seed);
        const auto value = test::randomValue(random, 4);
        fn::ByteArray ours;
        {
            fn::ByteArrayOutputStream stream(ours);
            fn::mpack::Serializer(stream).serialize(value);
        }
        const Theirs theirs(ours.view());
        ASSERT_EQ(theirs.value, value) << seed;
        ASSERT_TRUE(theirs.packed == ours.view()) << seed; // Also: none of our forms is longer than it must be.
        fn::MemoryInputStream stream(theirs.packed.data(), theirs.packed.size());
        ASSERT_EQ(fn::mpack::Deserializer(stream).deserialize(), value) << seed;
    }
}

TEST(MPack, ReadsTimestampsAndFloatsOfAnIndependentImplementation)
{
    for (const msgpack_timestamp time :
        { msgpack_timestamp { 5, 0 }, { 5, 999999999 }, { -5, 1000 }, { 1LL << 34, 7000 } }) {
        msgpack_sbuffer buffer;
        msgpack_sbuffer_init(&buffer);
        msgpack_packer packer;
        msgpack_packer_init(&packer, &buffer, msgpack_sbuffer_write);
        msgpack_pack_timestamp(&packer, &time);
        msgpack_pack_float(&packer, 0.25f);
        fn::MemoryInputStream stream(buffer.data, buffer.size);
        fn::mpack::Deserializer deserializer(stream);
        const auto expected = time.tv_sec * 1'000'000 + time.tv_nsec / 1000;
        EXPECT_EQ(deserializer.deserialize()->boxed<fn::Timestamp>().microseconds(), expected);
        EXPECT_EQ(deserializer.deserialize(), Value(0.25));
        msgpack_sbuffer_destroy(&buffer);
    }
}

} // namespace
