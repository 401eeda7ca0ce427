#pragma once

namespace media {

/// Browses the inspectors of the running program on the terminal. Gives the exit code, or -1 if no program runs.
int inspectRunning();

} // namespace media
