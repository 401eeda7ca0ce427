#pragma once
#include "driver/driver.h"

namespace bench {

/// What a driver program can play, by the name of the role.
using Roles = std::map<std::string, void (*)(const Options&)>;

/// Plays the role that the command line names, and so runs until the process is killed.
[[noreturn]] void play(const Options& options, const Roles& roles);

} // namespace bench
