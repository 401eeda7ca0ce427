#pragma once
#include "base/export.h"

namespace fn {

/// Each thread keeps up to 8 MiB of freed memory of its larger byte arrays for its next ones. This call gives the memory that
/// the calling thread keeps back to the system, if the thread has made no such array since the last call. Workers call it when
/// they are pinged.
FN_EXPORT void giveBackIdleMemory() noexcept;

} // namespace fn
