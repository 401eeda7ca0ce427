#include "core/services/image/buffer_image.h"
#include "core/services/image/detail/plane_size.h"
#include "foundation/assertion.h"
#include <cstring>
#include <utility>

namespace core {
namespace {

bool isOnePlaneOfPixels(Image::Format format)
{
    return FN_ASSERT(format != Image::Format::JPEG && format != Image::Format::YUV_420
            && format != Image::Format::YUV_422 && format != Image::Format::YUV_444,
        fn::sites::imageHasPixels);
}

fn::ByteArray copyOfPlane(const Image& image, unsigned int plane)
{
    const auto size = image.size(plane);
    const auto readable = image.readableSize(plane);
    if (readable >= size) return { image.data(plane), size };
    fn::ByteArray copy;
    copy.resizeUninitialized(size);
    auto* bytes = copy.mutableData();
    if (readable > 0) std::memcpy(bytes, image.data(plane), readable);
    std::memset(bytes + readable, 0, size - readable);
    return copy;
}

} // namespace

BufferImage::BufferImage(Format format, const Fraction& pixelAspectRatio)
    : _format(format),
      _pixelAspectRatio(pixelAspectRatio)
{
}

BufferImage::BufferImage(Format format, std::uint32_t width, std::uint32_t height, std::uint32_t stride,
    fn::ByteArray pixels, Fraction pixelAspectRatio)
    : _format(format),
      _pixelAspectRatio(pixelAspectRatio)
{
    if (!isOnePlaneOfPixels(format)) return;
    if (stride == 0) stride = detail::strideOfRow(width, format == Format::PACKED_8 ? 1 : 4);
    pixels.resize(detail::planeSize(height, stride));
    _width = width;
    _height = height;
    _strides[0] = stride;
    _planes[0] = std::move(pixels);
}

BufferImage::BufferImage(Format format, std::uint32_t width, std::uint32_t height, std::array<unsigned int, 3> strides,
    std::array<fn::ByteArray, 3> planes, const Fraction& pixelAspectRatio)
    : _format(format),
      _width(width),
      _height(height),
      _strides(strides),
      _planes(std::move(planes)),
      _pixelAspectRatio(pixelAspectRatio)
{
}

BufferImage::BufferImage(std::uint32_t width, std::uint32_t height, fn::ByteView jpeg, Fraction pixelAspectRatio)
    : _format(Format::JPEG),
      _width(width),
      _height(height),
      _planes { fn::ByteArray(jpeg.data(), jpeg.size()) },
      _pixelAspectRatio(pixelAspectRatio)
{
}

BufferImage::BufferImage(const Image& other)
    : _format(other.format()),
      _width(other.width()),
      _height(other.height()),
      _pixelAspectRatio(other.pixelAspectRatio())
{
    for (unsigned int plane = 0; plane < planeCountForFormat(_format); ++plane) {
        _strides[plane] = other.stride(plane);
        _planes[plane] = copyOfPlane(other, plane);
    }
}

BufferImage::BufferImage(const BufferImage& other) : BufferImage(static_cast<const Image&>(other)) { }

BufferImage::~BufferImage() = default;

} // namespace core
