#pragma once
#include "api/scan_types.h"
#include "core/ipc/interface/codec_containers.h"
#include "core/ipc/interface/method.h"

namespace media {

struct FoundFiles {
    ScanId scan;
    std::vector<FoundFile> files;
};
FN_FIELDS(FoundFiles, files, scan)

struct ScannedFiles {
    ScanId scan;
    std::vector<ScannedFile> files;
};
FN_FIELDS(ScannedFiles, files, scan)

/// The library, which keeps the catalogue of all folders that were ever scanned.
struct Library : ipc::Interface<Library> {
    /// Opens the catalogue in this folder, unless it is open, and makes either if it is missing. The other methods may be called
    /// afterwards. One library at a time can open a catalogue: another one waits for a moment, then fails.
    ipc::Method<void(fn::String dataFolder)> open;

    ipc::Method<ScanId(fn::String folder)> beginScan; ///< Starts the next scan of a folder.

    /// Notes the files that are unchanged since the catalogue has read them as found by this scan. Gives the positions of the
    /// others, which must be read.
    ipc::Method<std::vector<std::size_t>(FoundFiles)> compare;

    /// Notes files as found and read by this scan: all of them or, if the call fails, none.
    ipc::Method<void(ScannedFiles)> store;

    /// Forgets the folder's files that this scan has not found, and sums up the others.
    ipc::Method<Totals(ScanId)> finishScan;

    IPC_MEMBERS(open, beginScan, compare, store, finishScan)
};

} // namespace media
