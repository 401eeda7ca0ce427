#pragma once
#include "api/scan_types.h"
#include "foundation/duration.h"
#include <string>

namespace media {

struct Summary {
    fn::String folder;
    Totals totals;
    PathSample unreadableFolders;
    int relaunches = 0; ///< Modules that ended and came back.
    fn::Duration time; ///< From the start of the console.
};

std::string summaryText(const Summary& summary); ///< Several lines.
std::string summaryJson(const Summary& summary); ///< One line, one object.

} // namespace media
