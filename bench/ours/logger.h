#pragma once
#include "driver/driver.h"

namespace bench::ours {

/// Logs through a logging profile, as every process of an application does.
void runLogger(const Options& options);

} // namespace bench::ours
