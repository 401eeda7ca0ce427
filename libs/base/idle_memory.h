#pragma once
#include "base/export.h"

namespace fn {

/// Each thread keeps up to 8 MiB of freed memory of its larger byte arrays for its next arrays. This call gives the memory that
/// the calling thread keeps back to the system, if the thread has made no larger array since the last call. Workers call this when
/// they are pinged.
FN_EXPORT void giveBackIdleMemory() noexcept;

} // namespace fn
