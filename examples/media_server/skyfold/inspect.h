#pragma once

namespace media {

/// Browses the inspectors of the program that runs, on the terminal. The exit code, or -1 where none runs.
int inspectRunning();

} // namespace media
