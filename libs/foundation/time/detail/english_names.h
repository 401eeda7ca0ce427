#pragma once
#include <array>
#include <string_view>

namespace fn::internal {

inline constexpr std::array<std::string_view, 7> dayNames { "Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat" };
inline constexpr std::array<std::string_view, 12> monthNames { "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug",
    "Sep", "Oct", "Nov", "Dec" };

} // namespace fn::internal
