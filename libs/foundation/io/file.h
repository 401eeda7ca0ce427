#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include "foundation/io/file_info.h"

namespace fn {

/// A path and what can be done with the entry of that name. Pipe names (`\\.\pipe\NAME`) stand for the endpoint of that
/// pipe. Failures are `fn::FileException`s with path and errno. Thread-safe.
class FN_EXPORT File {
public:
    explicit File(String path);
    const String& path() const noexcept { return _path; } ///< As given.

    enum class Links { Follow, Keep };
    /// Whether there is an entry of that name; with Follow, a link that leads nowhere counts as none. Throws if the system
    /// cannot tell.
    bool exists(Links links = Links::Follow) const;
    FileInfo info(Links links = Links::Follow) const;

    /// Removes a file, a link or an empty directory; with `recursive` also a directory and all it holds (links in it are
    /// removed, not followed). If there is no such entry, that is an error.
    void remove(bool recursive) const;

    /// Renames in one step, replacing a file of the new name. Both names must be on one file system.
    void moveTo(const String& path) const;

    /// Throws the exception for the current `errno`.
    [[noreturn]] static void handleErrno(const String& path);
    [[noreturn]] static void handleErrno(const String& path, int error);

private:
    String _path;
};

} // namespace fn
