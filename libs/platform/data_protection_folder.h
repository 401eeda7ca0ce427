#pragma once
#include "foundation/exceptions.h"
#include "foundation/string.h"

namespace platform {

/// The folder with the key of `CryptProtectData()`: `core` in `$XDG_DATA_HOME`, or in `.local/share` of the user's home.
/// It need not exist. `fn::IOException` if the user has no home. Thread-safe.
FN_EXPORT fn::String protectionFolder();

/// For tests: the key lies in `folder`, which is made where it is missing, while this lives. Nested ones end in reverse
/// order.
class FN_EXPORT ScopedProtectionFolder {
public:
    explicit ScopedProtectionFolder(fn::String folder);
    ScopedProtectionFolder(const ScopedProtectionFolder&) = delete;
    ScopedProtectionFolder& operator=(const ScopedProtectionFolder&) = delete;
    ~ScopedProtectionFolder();

private:
    fn::String _previous;
};

} // namespace platform
