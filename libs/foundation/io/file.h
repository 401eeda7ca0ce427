#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include "foundation/io/file_info.h"

namespace fn {

/// A path, and the operations on the directory entry of that path. A pipe name (`\\.\pipe\NAME`) stands for the endpoint of that
/// pipe. Failures are `fn::FileException`s with path and errno. Thread-safe.
class FN_EXPORT File {
public:
    explicit File(String path); ///< Asks the system nothing.
    const String& path() const noexcept { return _path; } ///< The path or pipe name as given.

    /// Whether a link stands for what it leads to.
    enum class Links { Follow, Keep };

    /// Whether there is such an entry; with Follow, a link that leads nowhere counts as none. Throws if the system cannot tell.
    bool exists(Links links = Links::Follow) const;
    FileInfo info(Links links = Links::Follow) const; ///< Kind, size and times. Throws if there is no such entry.

    /// Removes a file, a link or an empty directory; with `recursive` also a directory and everything in it (links in it are
    /// removed, not followed). Throws if there is no such entry.
    void remove(bool recursive) const;

    /// Renames the entry in one step, and replaces a file at `path`. Both paths must be on one file system.
    void moveTo(const String& path) const;

    /// Throws the exception for the current `errno`.
    [[noreturn]] static void handleErrno(const String& path);
    [[noreturn]] static void handleErrno(const String& path, int error);

private:
    String _path;
};

} // namespace fn
