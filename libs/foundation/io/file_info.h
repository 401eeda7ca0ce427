#pragma once
#include "foundation/time/timestamp.h"
#include <cstdint>

namespace fn {

enum class FileKind : std::uint8_t { Regular, Directory, Link, Socket, Pipe, Other };

/// What a directory entry says about a file.
struct FileInfo {
    std::uint64_t size = 0; ///< Bytes.
    FileKind kind = FileKind::Other;
    Timestamp created; ///< Of the last change of the entry where the file system does not record creation.
    Timestamp modified; ///< Of the content.
    std::uint32_t mode = 0; ///< Permission bits.
    std::uint64_t inode = 0;
};

} // namespace fn
