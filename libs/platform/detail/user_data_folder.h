#pragma once
#include "base/string.h"

namespace platform::detail {

/// Where this layer keeps what is the user's: `core` in `$XDG_DATA_HOME`, or in `.local/share` of his home. It need not exist.
/// `fn::IOException` if he has no home. Thread-safe.
fn::String userDataFolder();

} // namespace platform::detail
