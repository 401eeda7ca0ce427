#include "core/services/image/detail/plane_size.h"
#include "base/exceptions.h"
#include <fmt/format.h>

namespace core::detail {

std::uint32_t strideOfRow(std::uint32_t width, unsigned int pixelSize)
{
    const auto bytes = (std::uint64_t(width) * pixelSize + 7) / 8 * 8;
    if (!std::in_range<std::uint32_t>(bytes))
        throw fn::RangeException(
            fmt::format("A row of {} pixels of {} bytes is too long for an image", width, pixelSize));
    return static_cast<std::uint32_t>(bytes);
}

std::size_t planeSize(std::uint32_t height, std::uint32_t stride)
{
    const auto bytes = std::uint64_t(height) * stride;
    if (!std::in_range<std::uint32_t>(bytes))
        throw fn::RangeException(fmt::format("{} rows of {} bytes are too many for an image", height, stride));
    return bytes;
}

} // namespace core::detail
