#pragma once
#include "core/simulation/search.h"

namespace simulated {

/// A whole application from its start to its end, with everything that can go wrong in it.
FN_EXPORT core::simulation::Report runOnce(core::simulation::Decisions& decisions, bool tells);

} // namespace simulated
