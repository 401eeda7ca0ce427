// What can break here: small bytes that become a large document.
#include "foundation/exceptions.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/deserializer.h"
#include <gtest/gtest.h>

TEST(DeserializerLimits, BoundTheValuesOfAllContainersTogether)
{
    const auto read = [](std::string_view bytes, std::uint64_t most) {
        fn::MemoryInputStream stream(bytes.data(), bytes.size());
        fn::mpack::Deserializer deserializer(stream);
        deserializer.setMaxValues(most);
        return deserializer.deserialize();
    };
    const std::string_view nested("\x92\x81\x01\x02\x93\x01\x02\x03"); // [{1: 2}, [1, 2, 3]]: 2 + 2 + 3 values.
    EXPECT_TRUE(read(nested, 7));
    EXPECT_THROW(read(nested, 6), fn::DataFormatException);
    // What is announced is refused before it is looked at, whatever follows.
    EXPECT_THROW(read(std::string_view("\xdd\xff\xff\xff\xff", 5), 1'000), fn::DataFormatException);
    EXPECT_THROW(read(std::string_view("\xdf\xff\xff\xff\xff", 5), 1'000), fn::DataFormatException);
}
