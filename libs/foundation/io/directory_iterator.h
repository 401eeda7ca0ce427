#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include "foundation/io/file_info.h"
#include <vector>

namespace fn {

/// One entry of a directory.
struct DirectoryEntry {
    String name; ///< Without the directory's path.
    String path; ///< The directory's path, '/', the name.
    FileKind kind = FileKind::Other; ///< The kind of the entry itself: links are not followed.
};

/// The entries of one directory, without '.' and '..', ascending by the bytes of their names. The constructor reads them all,
/// and throws `fn::FileException` if it cannot read the directory.
class FN_EXPORT DirectoryIterator {
public:
    explicit DirectoryIterator(const String& path); ///< Reads the directory.

    using Iterator = std::vector<DirectoryEntry>::const_iterator; ///< Over the entries, which are there already.
    Iterator begin() const noexcept { return _entries.begin(); } ///< The first entry.
    Iterator end() const noexcept { return _entries.end(); } ///< Behind the last one.
    std::size_t size() const noexcept { return _entries.size(); } ///< How many entries.

private:
    std::vector<DirectoryEntry> _entries;
};

} // namespace fn
