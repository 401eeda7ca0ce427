#pragma once
#include "base/export.h"

namespace fn {

/// Each thread keeps up to 8 MiB of the memory of its larger byte arrays, for its next ones. Gives that of the calling thread
/// back to the system, if no such array was made in it since the last call: to be called now and then, as workers do when they are
/// pinged.
FN_EXPORT void giveBackIdleMemory() noexcept;

} // namespace fn
