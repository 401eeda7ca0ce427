#pragma once
#include "base/file_descriptor.h"

namespace media {

/// Marks a catalogue as in use by this process. The lock ends with the process, however that ends.
class CatalogueLock {
public:
    /// Makes the lock file if it is missing. `fn::FileException` if that fails.
    explicit CatalogueLock(const fn::String& path);

    bool tryLock(); ///< False while another process holds it.

private:
    fn::FileDescriptor _file;
};

} // namespace media
