#pragma once
#include "foundation/uv/loop.h"

namespace media {

/// Runs the loop until somebody stops it, or until SIGINT or SIGTERM does: the signal's number then, else 0.
int runUntilSignal(fn::uv::Loop& loop);

} // namespace media
