#pragma once
#include <cstdint>

namespace core {

/// The widths of the margins that are added around an image, in pixels of its plane 0.
struct Margins {
    std::uint32_t left = 0;
    std::uint32_t top = 0;
    std::uint32_t right = 0;
    std::uint32_t bottom = 0;
};

} // namespace core
