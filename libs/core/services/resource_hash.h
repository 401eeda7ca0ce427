#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include "base/string.h"

namespace core {

/// Tells files apart by content without reading large ones whole.
///
/// Up to 327,679 bytes a file is hashed whole; a larger one by its size and six stretches of at most 64 KiB, so files
/// of one size that differ only between those have the same hash.
class FN_EXPORT ResourceHash {
public:
    ResourceHash() = delete;

    /// 40 lower-case hexadecimal digits. `fn::FileException` for a file that can not be opened or read, and for a pipe.
    /// Reads on the calling thread. A file that is being written has the hash of the bytes that were read.
    static fn::String forFile(const fn::String& path);
};

} // namespace core
