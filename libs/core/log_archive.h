#pragma once
#include "foundation/export.h"
#include "foundation/string.h"

namespace core {

/// Copies of the application's logs for a user to hand over.
class FN_EXPORT LogArchive {
public:
    LogArchive() = delete;

    /// Packs the files of the log folder into a ZIP file on the user's desktop, named after the application and the local
    /// time; one of the same second is replaced. Only its user can read it, as is the case with the logs. They may be
    /// written and rotated meanwhile.
    ///
    /// Returns the path of the archive, or "" after a failure, with a log line at priority 1. A folder among the logs is a
    /// failure. What was written until then stays and is no valid archive. Blocks for as long as it takes. On any
    /// thread, one call at a time.
    static fn::String createLogArchive();
};

} // namespace core
