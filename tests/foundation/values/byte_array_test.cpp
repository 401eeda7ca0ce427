// What can break here: a change that shows in a copy or a slice, storage lost or kept where it must not, lenient Base64.
#include "foundation/byte_array.h"
#include "foundation/exceptions.h"
#include <gtest/gtest.h>
#include <random>

namespace {

using fn::ByteArray;

/// Arrays that share storage in every way, beside strings that share nothing.
class Arrays {
public:
    explicit Arrays(unsigned seed) : _random(seed) { }

    void run()
    {
        for (int step = 0; step < 100; ++step) {
            change(below(4), below(4));
            for (std::size_t i = 0; i < 4; ++i) ASSERT_EQ(_arrays[i].view(), _models[i]) << step;
        }
    }

private:
    std::size_t below(std::size_t limit) { return _random() % limit; }

    void change(std::size_t a, std::size_t b)
    {
        auto& bytes = _arrays[a];
        auto& model = _models[a];
        const auto offset = below(model.size() + 3), size = below(40);
        switch (below(9)) {
        case 0:
            bytes = _arrays[b];
            model = _models[b];
            EXPECT_TRUE(a == b || bytes.empty() || (bytes.isShared() && bytes.capacity() == 0));
            break;
        case 1: // Also of itself: the last holder may use the whole buffer.
            bytes = _arrays[b].slice(offset, size);
            model = offset < _models[b].size() ? _models[b].substr(offset, size) : "";
            break;
        case 2:
            if (model.size() > 1000) return;
            bytes.append(_arrays[b].data(), _arrays[b].size());
            model += std::string(_models[b]);
            break;
        case 3:
            bytes.append("0123456789", size % 11);
            model.append("0123456789", size % 11);
            break;
        case 4: // Grows with zeros.
            bytes.resize(size);
            model.resize(size);
            break;
        case 5: {
            const bool isShared = bytes.isShared(), isOwn = bytes.capacity() > 0;
            bytes.clear();
            model.clear();
            EXPECT_TRUE(isOwn ? bytes.capacity() > 0 : !isShared || bytes.capacity() == 0)
                << "Kept for what comes, unless others use it.";
            break;
        }
        case 6:
            bytes.reserve(size);
            EXPECT_GE(bytes.capacity(), std::max(size, model.size()));
            break;
        case 7:
            bytes.removePrefix(offset);
            model.erase(0, offset);
            break;
        default:
            if (offset >= model.size()) return;
            bytes.mutableData()[offset] = 'x';
            model[offset] = 'x';
        }
    }

    std::mt19937 _random;
    ByteArray _arrays[4];
    std::string _models[4];
};

TEST(ByteArray, ChangesShowInNoCopyAndNoSlice)
{
    for (unsigned seed = 0; seed < 300 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Arrays(seed).run();
    }
    EXPECT_THROW(ByteArray().reserve(std::size_t(1) << 32), fn::RangeException);
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
    for (const char* bad : { "A", "AB", "ABC", "AB=C", "====", "A===", "AB*=", "ABCD=", "AB==CD==" })
        EXPECT_THROW(ByteArray::fromBase64(bad), fn::DataFormatException) << bad;
    EXPECT_EQ(ByteArray("\xFF\x0a").hex(), "ff0a");
    EXPECT_EQ(ByteArray().SHA256().hex(), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

} // namespace
