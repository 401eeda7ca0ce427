// Copies of images with margins. Whole rows are copied, nearly as fast as the memory allows.
#include "base/exceptions.h"
#include "core/services/image/buffer_image.h"
#include "core/services/image/detail/plane_size.h"
#include <cstring>
#include <fmt/format.h>
#include <utility>

namespace core {
namespace {

std::uint32_t withMargins(std::uint32_t length, std::uint32_t before, std::uint32_t after)
{
    const auto sum = std::uint64_t(length) + before + after;
    if (!std::in_range<std::uint32_t>(sum))
        throw fn::RangeException(fmt::format("Margins of {} and {} pixels make an image too large", before, after));
    return static_cast<std::uint32_t>(sum);
}

/// Repeats one pixel.
class Fill {
public:
    /// `pixelSize` is 1 or 4.
    Fill(unsigned int fill, unsigned int pixelSize, unsigned int plane) : _isByte(pixelSize == 1)
    {
        for (unsigned int i = 0; i < 4; ++i) _pixel[i] = static_cast<unsigned char>(fill >> 8 * (_isByte ? plane : i));
    }

    /// `bytes` are whole pixels.
    void write(unsigned char* to, std::size_t bytes) const
    {
        if (_isByte)
            std::memset(to, _pixel[0], bytes);
        else
            for (std::size_t i = 0; i < bytes; i += 4) std::memcpy(to + i, _pixel, 4);
    }

private:
    const bool _isByte;
    unsigned char _pixel[4]; // Four times the same byte, if a pixel has one byte.
};

/// One plane of the source, and its place in the copy.
struct Plane {
    Plane(const Image& image, unsigned int plane, const Margins& margins, unsigned int fill);
    fn::ByteArray copy() const;
    void copyRows(unsigned char* to) const;

    const Fill fill;
    const unsigned char* const source;
    const std::size_t sourceStride;
    const std::size_t leftBytes;
    const std::size_t rowBytes;
    const std::size_t topRows;
    const std::size_t rows;
    std::uint32_t stride; // Of the copy.
    std::size_t size; // Of the copy.
};

Plane::Plane(const Image& image, unsigned int plane, const Margins& margins, unsigned int fillValue)
    : fill(fillValue, image.pixelSize(), plane),
      source(image.data(plane)),
      sourceStride(image.stride(plane)),
      leftBytes(std::size_t(margins.left >> image.horizontalSubsampling(plane)) * image.pixelSize()),
      rowBytes(std::size_t(image.width() >> image.horizontalSubsampling(plane)) * image.pixelSize()),
      topRows(margins.top >> image.verticalSubsampling(plane)),
      rows(image.height() >> image.verticalSubsampling(plane))
{
    const auto newWidth = withMargins(image.width(), margins.left, margins.right);
    const auto newHeight = withMargins(image.height(), margins.top, margins.bottom);
    stride = detail::strideOfRow(newWidth >> image.horizontalSubsampling(plane), image.pixelSize());
    size = detail::planeSize(newHeight >> image.verticalSubsampling(plane), stride);
    if (rows > 0 && rowBytes > 0 && (rows - 1) * sourceStride + rowBytes > image.readableSize(plane))
        throw fn::RangeException(fmt::format("Plane {} of an image of {} x {} pixels has only {} bytes", plane,
            image.width(), image.height(), image.readableSize(plane)));
}

fn::ByteArray Plane::copy() const
{
    fn::ByteArray bytes;
    if (size == 0) return bytes; // Such a plane may have billions of rows.
    bytes.resizeUninitialized(size); // Each byte is written below.
    auto* const first = bytes.mutableData();
    const auto before = topRows * stride;
    const auto inside = rows * stride;
    fill.write(first, before);
    copyRows(first + before);
    fill.write(first + before + inside, size - before - inside);
    return bytes;
}

void Plane::copyRows(unsigned char* to) const
{
    if (rowBytes == stride && sourceStride == stride) {
        if (rows > 0 && rowBytes > 0) std::memcpy(to, source, rows * rowBytes);
        return;
    }
    const auto rightBytes = stride - leftBytes - rowBytes;
    for (std::size_t row = 0; row < rows; ++row, to += stride) {
        if (leftBytes > 0) fill.write(to, leftBytes);
        if (rowBytes > 0) std::memcpy(to + leftBytes, source + row * sourceStride, rowBytes);
        if (rightBytes > 0) fill.write(to + leftBytes + rowBytes, rightBytes);
    }
}

} // namespace

fn::AutoPtr<Image> Image::clone(const Margins& margins, unsigned int fill) const
{
    if (format() == Format::JPEG)
        return fn::makeAuto<BufferImage>(width(), height(), fn::ByteView(data(0), readableSize(0)), pixelAspectRatio());

    const auto newWidth = withMargins(width(), margins.left, margins.right);
    const auto newHeight = withMargins(height(), margins.top, margins.bottom);
    std::array<unsigned int, 3> strides {};
    std::array<fn::ByteArray, 3> planes;
    for (unsigned int p = 0; p < planeCount(); ++p) {
        const Plane plane(*this, p, margins, fill);
        strides[p] = plane.stride;
        planes[p] = plane.copy();
    }
    return fn::makeAuto<BufferImage>(format(), newWidth, newHeight, strides, std::move(planes), pixelAspectRatio());
}

} // namespace core
