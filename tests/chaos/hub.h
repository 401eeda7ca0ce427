#pragma once

namespace chaos {

inline constexpr int modules = 6;
inline constexpr const char* moduleName = "chaos_module_"; ///< And a number from 1.

/// The main process: a dispatcher, and a module manager for each module that another one has given up. It tells the journal what the managers
/// say, and at SIGUSR1 what it counts.
int runHub();

} // namespace chaos
