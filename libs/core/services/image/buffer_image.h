#pragma once
#include "base/byte_array.h"
#include "base/byte_view.h"
#include "base/exceptions.h"
#include "core/services/image/image.h"
#include <array>

namespace core {

/// An image that owns its bytes. Byte arrays that it is given are shared with the giver until one of them writes: the
/// first `mutableData()` of such a plane copies it, and pointers from `data()` before that keep showing the giver's
/// bytes.
class FN_EXPORT BufferImage : public Image {
public:
    BufferImage(Format format, const Fraction& pixelAspectRatio); ///< 0 x 0 pixels, no bytes.

    /// An image of one plane of raw pixels. `stride` 0 stands for the bytes of a row, rounded up to a multiple of 8.
    /// `pixels` is cut, or continued with zeros, to `height` strides: above 4 GiB - 1 it is refused with
    /// `fn::RangeException`. A format that has three planes or is compressed is reported as a broken invariant, and the
    /// image is empty.
    BufferImage(Format format, std::uint32_t width, std::uint32_t height, std::uint32_t stride, fn::ByteArray pixels,
        Fraction pixelAspectRatio);

    /// Takes everything as given. Planes that the format does not use are empty.
    BufferImage(Format format, std::uint32_t width, std::uint32_t height, std::array<unsigned int, 3> strides,
        std::array<fn::ByteArray, 3> planes, const Fraction& pixelAspectRatio);

    /// Copies a JPEG stream. `width` and `height` are those of the decoded image; the stream is not checked against them.
    BufferImage(std::uint32_t width, std::uint32_t height, fn::ByteView jpeg, Fraction pixelAspectRatio);

    /// A copy of all bytes, with the same strides. Bytes that `other` counts but has not (`readableSize()`) are zero.
    explicit BufferImage(const Image& other);
    BufferImage(const BufferImage& other); ///< Copies all bytes likewise: the images share nothing.

    Format format() const override { return _format; }
    std::uint32_t width() const override { return _width; }
    std::uint32_t height() const override { return _height; }
    std::uint32_t stride(unsigned int plane) const override { return _strides[plane]; }
    unsigned char* mutableData(unsigned int plane) override { return _planes[plane].mutableData(); }
    const unsigned char* data(unsigned int plane) const override { return _planes[plane].data(); }
    std::size_t size(unsigned int plane) const override { return _planes[plane].size(); }
    Fraction pixelAspectRatio() const override { return _pixelAspectRatio; }

protected:
    ~BufferImage() override;

private:
    const Format _format;
    std::uint32_t _width = 0;
    std::uint32_t _height = 0;
    std::array<std::uint32_t, 3> _strides {};
    std::array<fn::ByteArray, 3> _planes;
    const Fraction _pixelAspectRatio;
};

} // namespace core
