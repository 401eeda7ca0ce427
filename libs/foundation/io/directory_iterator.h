#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include "foundation/io/file_info.h"
#include <vector>

namespace fn {

struct DirectoryEntry {
    String name;
    String path; ///< The directory's path, '/', the name.
    FileKind kind = FileKind::Other; ///< The kind of the entry itself: links are not followed.
};

/// The entries of one directory, without '.' and '..', ascending by the bytes of their names. The constructor reads them all,
/// and throws `fn::FileException` if it cannot read the directory.
class FN_EXPORT DirectoryIterator {
public:
    explicit DirectoryIterator(const String& path);

    using Iterator = std::vector<DirectoryEntry>::const_iterator;
    Iterator begin() const noexcept { return _entries.begin(); }
    Iterator end() const noexcept { return _entries.end(); }
    std::size_t size() const noexcept { return _entries.size(); }

private:
    std::vector<DirectoryEntry> _entries;
};

} // namespace fn
