#pragma once
#include "base/string.h"

namespace platform::detail {

/// The folder for this layer's files of the user: `core` in `$XDG_DATA_HOME`, or in `.local/share` of the user's home. The folder
/// need not exist. `fn::IOException` if the user has no home. Thread-safe.
fn::String userDataFolder();

} // namespace platform::detail
