#pragma once
#include "foundation/uv/loop.h"

/// The processes that this one has started.
namespace media {

bool hasChildren(); ///< Also one that has ended, as long as nobody has waited for it.

/// Runs the loop until all children have ended, but no longer than this. Loop thread, while the loop does not run.
void awaitChildren(fn::uv::Loop& loop, fn::Duration most);

/// Waits, without a loop, for children that were killed; no longer than this: one that hangs in the kernel stays.
void reapChildren(fn::Duration most);

} // namespace media
