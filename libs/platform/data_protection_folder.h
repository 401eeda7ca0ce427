#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include "platform/scoped_override.h"

namespace platform {

/// The folder with the key of `CryptProtectData()`: `core` in `$XDG_DATA_HOME`, or in `.local/share` of the user's home.
/// It need not exist. `fn::IOException` if the user has no home. Thread-safe.
FN_EXPORT fn::String protectionFolder();

/// For tests: the folder of the key, which is made if it is missing.
using ScopedProtectionFolder = ScopedOverride<protectionFolder, fn::String>;
extern template class FN_EXPORT ScopedOverride<protectionFolder, fn::String>;

} // namespace platform
