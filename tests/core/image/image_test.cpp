// What can break here: bytes read or written outside of a plane, a size that wraps, a margin or padding that nobody writes,
// subsampled planes of odd sizes, pixels that are copied where they are shared (or the other way round), a source that ends
// before its viewers.
#include "base/exceptions.h"
#include "core/services/image/buffer_image.h"
#include <gtest/gtest.h>

namespace {

using core::BufferImage;
using core::Fraction;
using core::Image;
using core::Margins;
using Format = core::Image::Format;
using ImagePtr = fn::AutoPtr<Image>;
using ConstImagePtr = fn::AutoPtr<const Image>;

const Fraction square(1, 1);

/// An image with no padding and a different byte nearly everywhere.
ImagePtr patterned(Format format, std::uint32_t width, std::uint32_t height)
{
    std::array<unsigned int, 3> strides {};
    std::array<fn::ByteArray, 3> planes;
    unsigned char next = 1;
    for (unsigned int p = 0; p < Image::planeCountForFormat(format); ++p) {
        const auto shiftX = p ? Image::horizontalChromaSubsamplingForFormat(format) : 0;
        const auto shiftY = p ? Image::verticalChromaSubsamplingForFormat(format) : 0;
        strides[p] = (width >> shiftX) * Image::pixelSizeForFormat(format);
        planes[p] = fn::ByteArray(strides[p] * (height >> shiftY));
        std::generate_n(planes[p].mutableData(), planes[p].size(), [&] { return next += 7; });
    }
    return fn::makeAuto<BufferImage>(format, width, height, strides, planes, Fraction(4, 3));
}

/// What a byte of a clone must be: looked up in the source pixel by pixel, or the fill.
int expectedByte(const Image& source, unsigned int p, const Margins& margins, unsigned int fill, std::size_t row,
    std::size_t byteInRow)
{
    const auto pixelSize = source.pixelSize();
    const auto column = std::ptrdiff_t(byteInRow / pixelSize) - (margins.left >> source.horizontalSubsampling(p));
    const auto line = std::ptrdiff_t(row) - (margins.top >> source.verticalSubsampling(p));
    if (column < 0 || column >= std::ptrdiff_t(source.width() >> source.horizontalSubsampling(p)) || line < 0
        || line >= std::ptrdiff_t(source.height() >> source.verticalSubsampling(p)))
        return fill >> 8 * (pixelSize == 1 ? p : byteInRow % 4) & 0xff;
    const auto x = std::uint32_t(column << source.horizontalSubsampling(p));
    const auto y = std::uint32_t(line << source.verticalSubsampling(p));
    return source.data(p)[source.offsetForPixel(x, y, p) + byteInRow % pixelSize];
}

void expectClone(const Image& source, const Margins& margins)
{
    constexpr unsigned int fill = 0xf4f3f2f1;
    const auto copy = source.clone(margins, fill);
    ASSERT_EQ(copy->format(), source.format());
    ASSERT_EQ(copy->width(), source.width() + margins.left + margins.right);
    ASSERT_EQ(copy->height(), source.height() + margins.top + margins.bottom);
    EXPECT_EQ(copy->pixelAspectRatio(), source.pixelAspectRatio());
    for (unsigned int p = 0; p < source.planeCount(); ++p) {
        const auto stride = ((copy->width() >> copy->horizontalSubsampling(p)) * copy->pixelSize() + 7) & ~7u;
        ASSERT_EQ(copy->stride(p), stride);
        ASSERT_EQ(copy->size(p), std::size_t(stride) * (copy->height() >> copy->verticalSubsampling(p)));
        for (std::size_t i = 0; i < copy->size(p); ++i)
            ASSERT_EQ(copy->data(p)[i], expectedByte(source, p, margins, fill, i / stride, i % stride))
                << "plane " << p << ", row " << i / stride << ", byte " << i % stride;
    }
}

TEST(BufferImage, SizesThatDoNotFitInto32BitsAreRefused)
{
    const auto make = [](Format format, std::uint32_t width, std::uint32_t height, std::uint32_t stride) {
        fn::makeAuto<BufferImage>(format, width, height, stride, fn::ByteArray(), square);
    };
    EXPECT_THROW(make(Format::PACKED_32_A, 0x4000'0000, 1, 0), fn::RangeException); // The row.
    EXPECT_THROW(make(Format::PACKED_8, 0xffff'ffff, 1, 0), fn::RangeException); // Its rounding.
    EXPECT_THROW(make(Format::PACKED_32_A, 0x1'0000, 0x4001, 0), fn::RangeException); // The rows.

    std::array<fn::ByteArray, 3> planes { fn::ByteArray(64), fn::ByteArray(16), fn::ByteArray(15) };
    const auto tooFew = fn::makeAuto<BufferImage>(Format::YUV_420, 8, 8, std::array { 8u, 4u, 4u }, planes, square);
    EXPECT_THROW(tooFew->clone({}, 0), fn::RangeException);
    EXPECT_THROW(tooFew->subImage(0, 1000, 8, 6)->clone({}, 0), fn::RangeException); // Not inside, as it ought to be.
    for (const Margins margins : { Margins { 0xffff'fffd, 0, 0, 0 }, Margins { 0, 0, 0, 0xffff'ffff },
             Margins { 0x8000'0000, 0, 0x8000'0000, 0 }, Margins { 0xffff, 0xffff, 0xffff, 0xffff } })
        EXPECT_THROW(patterned(Format::YUV_420, 4, 4)->clone(margins, 0), fn::RangeException);
}

TEST(Clone, EachByteIsAPixelOfTheSourceOrTheFillInAnyFormatAndSize)
{
    for (int format = 2; format <= 9; ++format) {
        const auto image = patterned(static_cast<Format>(format), 24, 11);
        const auto view = image->subImage(5, 3, 19, 8); // To the source's last pixel.
        for (std::uint32_t size = 0; size <= 16; ++size) {
            const auto part = view->subImage(size % 3, size % 2, size, size / 3);
            for (const Margins margins :
                { Margins {}, Margins { 1, 1, 1, 1 }, Margins { 2, 0, 3, 5 }, Margins { 0, 1, 8, 0 } })
                ASSERT_NO_FATAL_FAILURE(expectClone(*part, margins)) << "format " << format << ", size " << size;
        }
    }
}

TEST(SubImage, ViewersShareThePixelsAndKeepTheSourceAlive)
{
    auto image = patterned(Format::YUV_422, 16, 8);
    auto inner = image->subImage(3, 1, 10, 6)->overridePixelAspectRatio({ 2, 1 })->subImage(3, 2, 5, 3);
    ConstImagePtr readable = fn::AutoPtr<const Image>(inner)->subImage(1, 1, 2, 2);
    inner->mutableData(0)[0] = 200;
    EXPECT_EQ(image->data(0)[3 * 16 + 6], 200);
    EXPECT_EQ(readable->data(0), image->data(0) + 4 * 16 + 7);
    EXPECT_EQ(inner->displayWidth(), 10u);
    const auto first = readable->data(0)[0];
    inner.reset();
    image.reset();
    EXPECT_EQ(readable->data(0)[0], first) << "a rectangle has let go of its image";
}

} // namespace
