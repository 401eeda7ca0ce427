#pragma once
#include "api/scan_types.h"
#include "foundation/io/directory_iterator.h"
#include <optional>
#include <vector>

namespace media {

/// Collects the regular files of a folder and of all folders below it, in steps of one entry or one listing. Links are not
/// followed; pipes, sockets and devices are left out, and so are files that disappear meanwhile.
class FolderWalk {
public:
    explicit FolderWalk(const fn::String& folder); ///< `fn::FileException` if this very folder cannot be read.

    bool isOver() const { return !_listing && _waiting.empty(); }
    void step(); ///< Does nothing when the walk is over.

    const std::vector<FoundFile>& files() const { return _files; }

    /// Folders that could not be read, or whose entries could not be looked at; below the folder walked.
    const PathSample& unreadableFolders() const { return _unreadableFolders; }

private:
    void list(const fn::String& folder);
    void lookAt(const fn::DirectoryEntry& entry);
    fn::String relative(const fn::String& path) const;
    void noteUnreadable(const fn::String& folder);

    const std::size_t _prefixBytes; // Bytes before the relative part of a path.
    std::vector<fn::String> _waiting; // Folders to be listed.
    std::optional<fn::DirectoryIterator> _listing;
    fn::DirectoryIterator::Iterator _next; // Within _listing.
    fn::String _listed; // The folder of _listing.
    std::vector<FoundFile> _files;
    PathSample _unreadableFolders;
    fn::String _lastUnreadable; // Each entry reports its folder, which counts once.
};

} // namespace media
