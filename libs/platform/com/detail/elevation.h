#pragma once
#include "foundation/string.h"

namespace platform::detail {

/// Whether the prompt that is installed grants `action`.
bool isElevationGranted(const fn::String& action);

} // namespace platform::detail
