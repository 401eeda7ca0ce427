#pragma once
#include "base/file_descriptor.h"

namespace media {

/// Marks a catalogue as being in use by this process. It ends with the process, however that ends.
class CatalogueLock {
public:
    /// Makes the lock file where needed. `fn::FileException` if that fails.
    explicit CatalogueLock(const fn::String& path);

    bool tryLock(); ///< False while another process holds it.

private:
    fn::FileDescriptor _file;
};

} // namespace media
