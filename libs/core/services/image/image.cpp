#include "core/services/image/image.h"
#include <algorithm>
#include <array>
#include <utility>

namespace core {
namespace {

struct Layout {
    unsigned int planes, pixelSize, horizontalShift, verticalShift;
};

Layout layoutOf(Image::Format format) noexcept
{
    using enum Image::Format;
    switch (format) {
    case JPEG: return { 1, 0, 0, 0 };
    case PACKED_8: return { 1, 1, 0, 0 };
    case YUV_444: return { 3, 1, 0, 0 };
    case YUV_422: return { 3, 1, 1, 0 };
    case YUV_420: return { 3, 1, 1, 1 };
    case PACKED_32_A:
    case PACKED_32_B:
    case PACKED_32_C:
    case PACKED_32_D: return { 1, 4, 0, 0 };
    }
    return { 0, 1, 0, 0 };
}

/// `length` times `by` divided by `over`, if that makes it longer.
std::uint32_t stretched(std::uint32_t length, std::int32_t by, std::int32_t over) noexcept
{
    if (over <= 0 || by <= over) return length;
    return length * static_cast<std::uint32_t>(by) / static_cast<std::uint32_t>(over);
}

/// A rectangle of another image.
class ViewportImage final : public Image {
public:
    ViewportImage(
        fn::AutoPtr<Image> source, std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height)
        : _source(std::move(source)),
          _offsets { _source->offsetForPixel(x, y, 0) },
          _width(width),
          _height(height)
    {
        for (unsigned int plane = 1; plane < _source->planeCount(); ++plane)
            _offsets[plane] = _source->offsetForPixel(x, y, plane);
    }

    Format format() const override { return _source->format(); }
    std::uint32_t width() const override { return _width; }
    std::uint32_t height() const override { return _height; }
    std::uint32_t stride(unsigned int plane) const override { return _source->stride(plane); }
    unsigned char* mutableData(unsigned int plane) override { return _source->mutableData(plane) + _offsets[plane]; }
    const unsigned char* data(unsigned int plane) const override
    {
        return std::as_const(*_source).data(plane) + _offsets[plane];
    }
    std::size_t size(unsigned int plane) const override
    {
        return std::size_t(stride(plane)) * (_height >> verticalSubsampling(plane));
    }
    Fraction pixelAspectRatio() const override { return _source->pixelAspectRatio(); }

    /// The last row is counted with a whole stride, the end of which is outside of the source if the rectangle begins
    /// right of the source's edge and ends at its bottom.
    std::size_t readableSize(unsigned int plane) const override
    {
        const auto ofSource = _source->readableSize(plane);
        return std::min(size(plane), ofSource - std::min(ofSource, _offsets[plane]));
    }

private:
    ~ViewportImage() override = default;

    const fn::AutoPtr<Image> _source;
    std::array<std::size_t, 3> _offsets; // Bytes from the source's first pixel to this one's, by plane.
    const std::uint32_t _width;
    const std::uint32_t _height;
};

/// Another image with a pixel aspect ratio of its own.
class OverrideParImage final : public Image {
public:
    OverrideParImage(fn::AutoPtr<Image> source, const Fraction& ratio) : _source(std::move(source)), _ratio(ratio) { }

    Format format() const override { return _source->format(); }
    std::uint32_t width() const override { return _source->width(); }
    std::uint32_t height() const override { return _source->height(); }
    std::uint32_t stride(unsigned int plane) const override { return _source->stride(plane); }
    unsigned char* mutableData(unsigned int plane) override { return _source->mutableData(plane); }
    const unsigned char* data(unsigned int plane) const override { return std::as_const(*_source).data(plane); }
    std::size_t size(unsigned int plane) const override { return _source->size(plane); }
    Fraction pixelAspectRatio() const override { return _ratio; }
    std::size_t readableSize(unsigned int plane) const override { return _source->readableSize(plane); }

private:
    ~OverrideParImage() override = default;

    const fn::AutoPtr<Image> _source;
    const Fraction _ratio;
};

/// For views of a const image, which are given out as const images only.
Image& withoutConst(const Image& image) { return const_cast<Image&>(image); }

} // namespace

Image::~Image() = default;

unsigned int Image::planeCountForFormat(Format format) noexcept { return layoutOf(format).planes; }

unsigned int Image::pixelSizeForFormat(Format format) noexcept { return layoutOf(format).pixelSize; }

unsigned int Image::horizontalChromaSubsamplingForFormat(Format format) noexcept
{
    return layoutOf(format).horizontalShift;
}

unsigned int Image::verticalChromaSubsamplingForFormat(Format format) noexcept
{
    return layoutOf(format).verticalShift;
}

std::size_t Image::readableSize(unsigned int plane) const { return size(plane); }

unsigned int Image::horizontalSubsampling(unsigned int plane) const
{
    return plane == 0 ? 0 : horizontalChromaSubsamplingForFormat(format());
}

unsigned int Image::verticalSubsampling(unsigned int plane) const
{
    return plane == 0 ? 0 : verticalChromaSubsamplingForFormat(format());
}

std::size_t Image::offsetForPixel(std::uint32_t x, std::uint32_t y, unsigned int plane) const
{
    x >>= horizontalSubsampling(plane);
    y >>= verticalSubsampling(plane);
    return std::size_t(stride(plane)) * y + std::size_t(pixelSize()) * x;
}

std::uint32_t Image::displayWidth() const
{
    const auto ratio = pixelAspectRatio();
    return stretched(width(), ratio.numerator(), ratio.denominator());
}

std::uint32_t Image::displayHeight() const
{
    const auto ratio = pixelAspectRatio();
    return stretched(height(), ratio.denominator(), ratio.numerator());
}

fn::AutoPtr<Image> Image::subImage(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height)
{
    return fn::makeAuto<ViewportImage>(fn::AutoPtr<Image>(this), x, y, width, height);
}

fn::AutoPtr<const Image> Image::subImage(
    std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height) const
{
    return withoutConst(*this).subImage(x, y, width, height);
}

fn::AutoPtr<Image> Image::overridePixelAspectRatio(const Fraction& ratio)
{
    if (ratio.denominator() == 0) return fn::AutoPtr<Image>(this);
    return fn::makeAuto<OverrideParImage>(fn::AutoPtr<Image>(this), ratio);
}

fn::AutoPtr<const Image> Image::overridePixelAspectRatio(const Fraction& ratio) const
{
    return withoutConst(*this).overridePixelAspectRatio(ratio);
}

} // namespace core
