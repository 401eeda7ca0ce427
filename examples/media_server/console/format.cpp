#include "console/format.h"
#include <fmt/format.h>

namespace media {

std::string formatCount(std::int64_t count)
{
    auto digits = fmt::format("{}", count);
    const std::size_t first = count < 0 ? 1 : 0;
    for (auto at = digits.size(); at > first + 3;) digits.insert(at -= 3, 1, ',');
    return digits;
}

std::string formatBytes(std::int64_t bytes)
{
    static constexpr const char* units[] = { "kB", "MB", "GB", "TB", "PB", "EB" };
    if (bytes < 1000) return fmt::format("{} B", bytes);
    auto amount = static_cast<double>(bytes) / 1000;
    std::size_t unit = 0;
    // What would be rounded to 1000.0 belongs to the next unit.
    for (; amount >= 999.95 && unit + 1 < std::size(units); ++unit) amount /= 1000;
    return fmt::format("{:.1f} {}", amount, units[unit]);
}

std::string formatTime(fn::Duration time)
{
    if (time < fn::Duration::milliseconds(59'950)) return fmt::format("{:.1f} s", time.totalSeconds());
    const auto seconds = (time.totalMicroseconds() + 500'000) / 1'000'000;
    if (seconds < 3600) return fmt::format("{}:{:02}", seconds / 60, seconds % 60);
    return fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

} // namespace media
