#pragma once
#include "foundation/exceptions.h"
#include "foundation/export.h"
#include "foundation/string.h"

namespace core {

/// Tells files apart by content without reading large ones whole.
///
/// Up to 327,679 bytes a file is hashed whole; a larger one by its size and six stretches of at most 64 KiB, so files
/// of one size that differ only between those have the same hash.
class FN_EXPORT ResourceHash {
public:
    ResourceHash() = delete;

    /// 40 lower-case hexadecimal digits. `fn::FileException` for a file that can not be opened or read. Opening a pipe
    /// without a writer blocks: look at what it is before.
    static fn::String forFile(const fn::String& path);
};

} // namespace core
