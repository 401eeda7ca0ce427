#pragma once
#include "core/simulation/detail/child_run.h"

namespace core::simulation {

/// The smallest story found that still fails in the same way, within half a minute: shorter, and with tamer decisions.
Decisions::Story shrink(const Run& run, Decisions::Story story, const Failure& failure);

} // namespace core::simulation
