#pragma once
#include "core/simulation/decisions.h"
#include "foundation/export.h"
#include <string>
#include <vector>

namespace simulated {

/// What came of one run.
struct Report {
    std::vector<std::string> violations;
    std::uint64_t hash = 0;
    std::uint64_t steps = 0;
    double seconds = 0; ///< Of virtual time.
};

/// A whole application from its start to its end, with everything that can go wrong in it.
/// `tells`: who does what at which virtual time, on standard output.
FN_EXPORT Report runOnce(core::simulation::Decisions& decisions, bool tells);

} // namespace simulated
