#pragma once
#include "api/library.h"
#include "core/ipc/interface/reference.h"

namespace media {

/// Who watches a scan.
struct ScanObserver : ipc::Interface<ScanObserver> {
    ipc::Method<void(ScanProgress)> progress; ///< The scanner waits for the answer.

    IPC_MEMBERS(progress)
};

struct ScanOrder {
    fn::String folder;
    ScanId scan;
    ipc::Ref<Library> library;
    ipc::Ref<ScanObserver> observer;
};
FN_FIELDS(ScanOrder, folder, library, observer, scan)

/// The scanner, which reads folders, one at a time, for a library.
struct Scanner : ipc::Interface<Scanner> {
    /// Updates the library's knowledge of a folder; the caller then calls `finishScan` of the library. Gives the folders that could
    /// not be read, whose files were not found.
    ///
    /// The scan ends when the observer has answered that all files are done. Cancelling ends the scan: files that are in the catalogue
    /// by then stay there, and the next attempt with the same ScanId finds them.
    ipc::Method<PathSample(ScanOrder)> scan;

    IPC_MEMBERS(scan)
};

} // namespace media
