#pragma once
#include "foundation/duration.h"
#include <cstdint>
#include <string>

namespace media {

std::string formatCount(std::int64_t count); ///< 12,345
std::string formatBytes(std::int64_t bytes); ///< 1.2 GB, in steps of 1000
std::string formatTime(fn::Duration time); ///< 0.3 s below a minute, 1:05, 1:00:05

} // namespace media
