#pragma once
#include "skyfold/options.h"

/// What the program does without its modules. Each gives the exit code.
namespace media {

int archiveLogs();
int setPassword(const Options& options);

} // namespace media
