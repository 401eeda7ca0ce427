#pragma once
#include "base/auto_ptr.h"
#include "base/exceptions.h"
#include "core/services/fraction.h"
#include <cstddef>
#include <cstdint>

namespace core {

/// The widths of the margins that are added around an image, in pixels of its plane 0.
struct Margins {
    std::uint32_t left = 0; ///< Columns before the image.
    std::uint32_t top = 0; ///< Rows above it.
    std::uint32_t right = 0; ///< Columns behind it.
    std::uint32_t bottom = 0; ///< Rows below it.
};

/// Pixels in up to three planes, or a compressed JPEG stream. Rectangles and other aspect ratios of an image are images,
/// too: they share its pixels and keep it alive.
///
/// An image may be held, read and released on any thread. Code that writes pixels must make sure that no other thread uses them
/// meanwhile; `mutableData()` counts as writing.
///
/// An argument `plane` is always below `planeCount()`.
class FN_EXPORT Image : public fn::RefCountedObject {
public:
    /// The values are stored in files. Any other value is a format without planes. Makers and users of images agree on the
    /// meaning of the channels in packed formats.
    enum class Format {
        JPEG = 1, ///< The compressed stream is plane 0.
        PACKED_8 = 2,
        YUV_444 = 3,
        YUV_422 = 4,
        YUV_420 = 5,
        PACKED_32_A = 6,
        PACKED_32_B = 7,
        PACKED_32_C = 8,
        PACKED_32_D = 9,
    };

    static unsigned int planeCountForFormat(Format format) noexcept; ///< 0 for a value that is no format.
    static unsigned int pixelSizeForFormat(Format format) noexcept; ///< Bytes per pixel, the same for each plane.
    /// Planes 1 and 2 have the width of plane 0 divided by 2 to the power of this, truncated.
    static unsigned int horizontalChromaSubsamplingForFormat(Format format) noexcept;
    static unsigned int verticalChromaSubsamplingForFormat(Format format) noexcept; ///< The same for the height.

    virtual Format format() const = 0; ///< How the pixels lie in the planes.
    virtual std::uint32_t width() const = 0; ///< Pixels.
    virtual std::uint32_t height() const = 0; ///< Pixels.
    virtual std::uint32_t stride(unsigned int plane) const = 0; ///< Bytes from one row of the plane to the next.
    /// The plane's bytes, to be written. See the class about threads.
    virtual unsigned char* mutableData(unsigned int plane) = 0;
    /// The plane's bytes. Valid as long as the image lives.
    virtual const unsigned char* data(unsigned int plane) const = 0;
    virtual std::size_t size(unsigned int plane) const = 0; ///< Bytes of the plane.
    virtual Fraction pixelAspectRatio() const = 0; ///< Width of a pixel by its height.

    /// How many of the `size()` bytes may be read. Fewer than all in a rectangle that ends in the last rows of its image, since
    /// `size()` counts whole strides. Default: all of them.
    virtual std::size_t readableSize(unsigned int plane) const;

    unsigned int planeCount() const { return planeCountForFormat(format()); } ///< Of this image's format.
    unsigned int pixelSize() const { return pixelSizeForFormat(format()); } ///< Of this image's format, in bytes.
    /// The plane has the image's width divided by 2 to the power of this, truncated.
    unsigned int horizontalSubsampling(unsigned int plane) const;
    unsigned int verticalSubsampling(unsigned int plane) const; ///< The same for the height.

    /// Bytes from `data(plane)` to the pixel at (x, y) of plane 0.
    std::size_t offsetForPixel(std::uint32_t x, std::uint32_t y, unsigned int plane) const;

    /// The size on a display with square pixels: one direction is stretched (modulo 2^32), none is shrunk. The stored size
    /// where the pixel aspect ratio is not positive.
    std::uint32_t displayWidth() const;
    std::uint32_t displayHeight() const; ///< See `displayWidth()`.

    /// A rectangle of this image, sharing its pixels. Subsampled planes begin at the position divided and truncated. No
    /// bounds are checked: the rectangle must lie inside of this image. A rectangle of a JPEG stream has no bytes.
    fn::AutoPtr<Image> subImage(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height);
    fn::AutoPtr<const Image> subImage(
        std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height) const;

    /// The same pixels with another ratio; this image itself if the ratio's denominator is 0.
    fn::AutoPtr<Image> overridePixelAspectRatio(const Fraction& ratio);
    fn::AutoPtr<const Image> overridePixelAspectRatio(const Fraction& ratio) const;

    /// A copy (a BufferImage) with margins around it, rows padded to a multiple of 8 bytes. All that is not copied is
    /// filled: with `fill` as a 32-bit little-endian pixel, or, where a pixel is one byte, plane p with bits 8p to 8p+7
    /// of `fill`. Margins and size are divided and truncated one by one for subsampled planes; what is then missing of
    /// such a plane's size is filled to the right and below.
    /// A JPEG stream is copied as it is.
    ///
    /// `fn::RangeException` if the copy would be too large (4 GiB a plane), or if a plane has fewer bytes than its size
    /// needs.
    fn::AutoPtr<Image> clone(const Margins& margins, unsigned int fill) const;

protected:
    ~Image() override;
};

} // namespace core
