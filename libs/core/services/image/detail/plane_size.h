#pragma once
#include <cstddef>
#include <cstdint>

namespace core::detail {

// Both compute in 64 bits and throw fn::RangeException where the result does not fit into 32: a plane is never shorter than
// its image says.

/// Bytes of a row, rounded up to a multiple of 8.
std::uint32_t strideOfRow(std::uint32_t width, unsigned int pixelSize);

std::size_t planeSize(std::uint32_t height, std::uint32_t stride);

} // namespace core::detail
