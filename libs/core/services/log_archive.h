#pragma once
#include "base/export.h"
#include "base/string.h"
#include <cstdint>

namespace core {

/// Copies of the application's logs for a user to hand over.
class FN_EXPORT LogArchive {
public:
    LogArchive() = delete;

    /// A log that grows faster than it is packed must come to an end, too: so much more than it held at first is taken.
    static constexpr std::uint64_t mostGrowthBytes = 16 * 1024 * 1024;

    /// The log folder is listed again until nothing new is in it. New names in each of so many lists are a failure.
    static constexpr int mostLists = 100;

    /// Packs the files of the log folder into a ZIP file on the user's desktop, named after the application and the local
    /// time; one of the same second is replaced. Only its user can read it, as is the case with the logs. They may be
    /// written and rotated meanwhile: what they held at the time of the call is in it, if the rotation has not dropped it.
    ///
    /// Returns the path of the archive, or "" after a failure, with a log line at priority 1. A folder among the logs is a
    /// failure, and whatever else is no file. What was written until then stays as NAME.zip.part, which is no valid
    /// archive; an earlier archive stays as it is. Blocks for as long as it takes. On any thread, one call at a time.
    static fn::String createLogArchive();
};

} // namespace core
