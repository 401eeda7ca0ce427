#pragma once
#include "core/ipc/interface/codec.h"
#include <cstdint>
#include <vector>

/// The values that the modules send each other about a scan.
namespace media {

/// A regular file that the walk has found.
struct FoundFile {
    fn::String path; ///< Below the scanned folder. Any bytes but NUL: names need not be text.
    std::int64_t size = 0; ///< Bytes.
    std::int64_t modified = 0; ///< Nanoseconds since 1970-01-01 UTC.
};
FN_FIELDS(FoundFile, path, size, modified)

/// A file that the scanner has read.
struct ScannedFile {
    FoundFile file;
    fn::String hash; ///< As `core::ResourceHash` gives it; empty if the file could not be read.
};
FN_FIELDS(ScannedFile, file, hash)

/// One scan of one folder, which may take several attempts.
struct ScanId {
    std::int64_t folder = 0;
    std::int64_t number = 0; ///< Ascends from scan to scan of the folder.
};
FN_FIELDS(ScanId, folder, number)

/// How far the scanner has come.
struct ScanProgress {
    int processId = 0; ///< The scanner's.
    bool walking = true; ///< Files are still being looked for: `found` grows.
    std::int64_t found = 0; ///< Files found.
    std::int64_t done = 0; ///< Files of these that are in the catalogue.

    bool isHalfWay() const { return !walking && done * 2 >= found; }
};
FN_FIELDS(ScanProgress, done, found, processId, walking)

/// Paths to show to people: the number of all, and the names of the first few.
struct PathSample {
    static constexpr std::size_t mostNamed = 5;

    std::int64_t count = 0;
    std::vector<fn::String> paths;

    void add(const fn::String& path)
    {
        ++count;
        if (paths.size() < mostNamed) paths.push_back(path);
    }
};
FN_FIELDS(PathSample, count, paths)

/// How many files of one kind there are, and their size.
struct KindTotal {
    fn::String kind; ///< "audio", "video", ...
    std::int64_t files = 0;
    std::int64_t bytes = 0;
};
FN_FIELDS(KindTotal, bytes, files, kind)

/// What the catalogue knows about a folder at the end of a scan.
struct Totals {
    std::int64_t files = 0; ///< Regular files found, also those that could not be read.
    std::int64_t bytes = 0; ///< Their sizes in sum.
    std::int64_t distinct = 0; ///< Different contents among those that could be read.
    std::int64_t hashed = 0; ///< Files that this scan has read.
    PathSample unreadable; ///< Files that were found, but could not be read.
    std::vector<KindTotal> kinds; ///< The largest first.

    /// Files that have the content of another file. An unreadable file is no duplicate.
    std::int64_t duplicates() const { return files - unreadable.count - distinct; }
};
FN_FIELDS(Totals, bytes, distinct, files, hashed, kinds, unreadable)

} // namespace media

// What is sent by the thousand travels without the names of its fields, which a message dump shows of the others.
template <> struct ipc::Codec<media::FoundFile> : ipc::ArrayOfFields<media::FoundFile> {
};
template <> struct ipc::Codec<media::ScannedFile> : ipc::ArrayOfFields<media::ScannedFile> {
};
