#pragma once
#include "base/exceptions.h"
#include "core/simulation/decisions.h"
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace core::simulation {

/// The outcome of one run of an application.
struct Report {
    std::vector<std::string> violations; ///< The broken rules, in the order in which they were seen.
    std::uint64_t hash = 0; ///< `World::traceHash()`.
    std::uint64_t steps = 0; ///< `World::steps()`.
    double seconds = 0; ///< In virtual time.
};

/// Runs an application under test from its start to its end, in a world of its own. `tells`: prints what happens.
using Run = std::function<Report(Decisions& decisions, bool tells)>;

/// The main function of a program that looks for decisions with which `run` fails. It runs each seed twice, since both runs must
/// be the same to the byte. The first failure (also a crash, or 40 s of processor time) is shrunk to a short story, printed, and
/// kept in a file. `--help` tells the options. Gives 0 if there was no failure.
FN_EXPORT int searchMain(int argc, char** argv, const Run& run);

} // namespace core::simulation
