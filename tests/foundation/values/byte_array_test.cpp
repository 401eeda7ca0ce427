// What can break here: a change that shows in a copy or a slice, storage lost or kept where it must not, lenient Base64.
#include "foundation/byte_array.h"
#include "foundation/exceptions.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/io/input_stream.h"
#include <gtest/gtest.h>

namespace {

using fn::ByteArray;

TEST(ByteArray, ChangesShowInNoCopyAndNoSlice)
{
    ByteArray bytes("0123456789");
    const ByteArray copy = bytes;
    ByteArray slice = bytes.slice(2, 5);
    EXPECT_EQ(slice.data(), bytes.data() + 2);
    EXPECT_TRUE(bytes.isShared());
    EXPECT_EQ(bytes.capacity(), 0u);

    bytes.mutableData()[2] = 'x';
    slice.append("!", 1);
    EXPECT_EQ(copy.view(), "0123456789");
    EXPECT_EQ(bytes.view(), "01x3456789");
    EXPECT_EQ(slice.view(), "23456!");
    EXPECT_EQ(copy.slice(8, 100).view(), "89");
    EXPECT_TRUE(copy.slice(100, 1).empty());
}

TEST(ByteArray, ASliceThatIsTheLastHolderMayUseTheWholeBuffer)
{
    ByteArray bytes("0123456789");
    bytes = bytes.slice(6, 2);
    EXPECT_FALSE(bytes.isShared());
    bytes.append("abcdefgh", 8); // More than behind it, not more than the buffer.
    EXPECT_EQ(bytes.view(), "67abcdefgh");
    bytes.append(bytes.data(), bytes.size());
    EXPECT_EQ(bytes.view(), "67abcdefgh67abcdefgh");
}

TEST(ByteArray, GrowsWithZerosAndKeepsStorageOnlyWhileItsOwn)
{
    ByteArray bytes("ab");
    bytes.resize(4);
    EXPECT_EQ(bytes.view(), std::string_view("ab\0\0", 4));
    bytes.resize(1);
    bytes.resize(3);
    EXPECT_EQ(bytes.view(), std::string_view("a\0\0", 3));

    bytes.reserve(1000);
    const auto* storage = bytes.data();
    bytes.clear();
    EXPECT_EQ(bytes.capacity(), 1000u);
    bytes.append("x", 1);
    EXPECT_EQ(bytes.data(), storage);
    const ByteArray other = bytes;
    bytes.clear();
    EXPECT_EQ(other.view(), "x");
    EXPECT_EQ(bytes.capacity(), 0u);
    EXPECT_THROW(bytes.reserve(std::size_t(1) << 32), fn::RangeException);
}

TEST(ByteArray, Base64ComesBackAndForeignTextIsRefused)
{
    for (std::size_t size = 0; size < 200; ++size) {
        ByteArray bytes(static_cast<unsigned>(size));
        for (std::size_t i = 0; i < size; ++i) bytes.mutableData()[i] = static_cast<std::uint8_t>(i * 37 + size);
        const auto lines = bytes.base64(72);
        EXPECT_FALSE(lines.endsWith("\n"));
        EXPECT_EQ(ByteArray::fromBase64(lines), bytes);
        EXPECT_EQ(ByteArray::fromBase64(bytes.base64()), bytes);
    }
    EXPECT_EQ(ByteArray("any carnal pleas").base64(8), "YW55IGNh\r\ncm5hbCBw\r\nbGVhcw==");
    for (const char* bad : { "A", "AB", "ABC", "AB=C", "====", "A===", "AB*=", "ABCD=", "AB==CD==" }) {
        EXPECT_THROW(ByteArray::fromBase64(bad), fn::DataFormatException) << bad;
    }
    EXPECT_EQ(ByteArray("\xFF\x0a").hex(), "ff0a");
    EXPECT_EQ(ByteArray().SHA256().hex(), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(MemoryStreams, WriteInPiecesWhatTheyReadInPieces)
{
    ByteArray bytes("head");
    fn::ByteArrayOutputStream out(bytes);
    std::string expected = "head";
    for (int i = 0; i < 300; ++i) {
        const std::string piece(static_cast<std::size_t>(i % 7), static_cast<char>('a' + i % 26));
        if (i % 50 == 0) out.flush();
        if (i % 3)
            out.write(piece);
        else
            out.writeShared(ByteArray(piece));
        expected += piece;
        EXPECT_EQ(out.position(), expected.size());
    }
    out.flush();
    EXPECT_EQ(bytes.view(), expected);
    const ByteArray sent = bytes;
    out.write("more"); // The content is shared now: it must not be written into.
    out.flush();
    EXPECT_EQ(sent.view(), expected);
    EXPECT_EQ(bytes.view(), expected + "more");
}

/// Gives its bytes one at a time and does not know how many are left.
class Trickle final : public fn::InputStream {
public:
    explicit Trickle(std::string bytes) : _bytes(std::move(bytes)) { }
    std::uint64_t position() const override { return _position; }

private:
    std::size_t readSlow(void* data, std::size_t size) override
    {
        if (size == 0 || _position == _bytes.size()) return 0;
        *static_cast<char*>(data) = _bytes[_position++];
        return 1;
    }
    std::string _bytes;
    std::size_t _position = 0;
};

TEST(InputStream, EndsWithAnErrorThatNamesTheOffset)
{
    for (const bool asArray : { false, true }) {
        Trickle stream("abcdef");
        EXPECT_EQ(stream.readString(2), "ab");
        stream.skip(1);
        char rest[10];
        try {
            if (asArray)
                stream.readByteArray(0xFFFF'FFFF); // Four gigabytes announced, three bytes sent.
            else
                stream.readExactly(rest, 10);
            FAIL();
        } catch (const fn::EndOfStreamException& e) {
            EXPECT_TRUE(e.find<fn::DetailInfo>()->contains("Offset: 6"));
        }
    }
    EXPECT_THROW(Trickle("abc").skip(4), fn::EndOfStreamException);
}

} // namespace
