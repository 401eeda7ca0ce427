#pragma once
#include "base/string.h"
#include <vector>

namespace core::simulation {

inline constexpr auto moduleLoaderName = "skyfold.module_loader";

/// What the module loader does with its arguments (its own name, library, pipe path, worker tag, whether it has parameters).
int runModuleLoader(const std::vector<fn::String>& arguments);

} // namespace core::simulation
