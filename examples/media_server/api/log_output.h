#pragma once
#include "foundation/export.h"

namespace media {

/// Shows log messages up to this priority on standard error, in this process and in those it starts from now on. Without
/// it there are warnings and errors only.
FN_EXPORT void chooseLogOutput(int priority);

/// Does in a module process what the main program has chosen.
FN_EXPORT void adoptLogOutput();

} // namespace media
