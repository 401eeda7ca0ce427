#pragma once
#include "base/export.h"
#include "base/string.h"
#include <cstdint>

namespace core {

/// Copies of the application's logs for a user to hand over.
class FN_EXPORT LogArchive {
public:
    LogArchive() = delete;

    /// Of a log that grows while it is packed so many more bytes are taken than it held at first, so that packing ends.
    static constexpr std::uint64_t mostGrowthBytes = 16 * 1024 * 1024;

    /// The log folder is listed again until it has no new names. If so many lists each have new names, packing fails.
    static constexpr int mostLists = 100;

    /// Packs the files of the log folder into a ZIP file on the user's desktop, named after the application and the local time; an
    /// archive of the same second is replaced. Only the user can read it, like the logs. Logs may be written and rotated meanwhile:
    /// the archive has what they held at the time of the call, if the rotation has not dropped it.
    ///
    /// Returns the path of the archive, or "" after a failure, with a log line at priority 1. A folder, or any other entry of the
    /// log folder that is no file, is a failure. The incomplete archive stays as NAME.zip.part, which is no valid one; an earlier
    /// archive stays as it is. Blocks until it is done. May be called on any thread, one call at a time.
    static fn::String createLogArchive();
};

} // namespace core
