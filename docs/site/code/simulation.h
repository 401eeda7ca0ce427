#pragma once
// What the code of docs/simulation.md finds.
#include "core/simulation/decisions.h"
#include "core/simulation/world.h"

extern std::uint64_t seed;
int runApplication();
