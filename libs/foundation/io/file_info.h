#pragma once
#include "foundation/time/timestamp.h"
#include <cstdint>

namespace fn {

/// What an entry of a directory is.
enum class FileKind : std::uint8_t { Regular, Directory, Link, Socket, Pipe, Other };

/// What a directory entry says about a file.
struct FileInfo {
    std::uint64_t size = 0; ///< Bytes.
    FileKind kind = FileKind::Other; ///< What it is.
    Timestamp created; ///< The time of the entry's last change if the file system records no creation.
    Timestamp modified; ///< Time of the content's last change.
    std::uint32_t mode = 0; ///< Permission bits.
    std::uint64_t inode = 0; ///< Its number in its file system.
};

} // namespace fn
