#pragma once
#include "base/exceptions.h"
#include "core/simulation/decisions.h"
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace core::simulation {

/// What came of one run of an application.
struct Report {
    std::vector<std::string> violations; ///< What should not have been, in its order.
    std::uint64_t hash = 0; ///< `World::traceHash()`.
    std::uint64_t steps = 0;
    double seconds = 0; ///< Of virtual time.
};

/// An application under test from its start to its end, in a world of its own. `tells`: who does what, on standard output.
using Run = std::function<Report(Decisions& decisions, bool tells)>;

/// The main function of a program that looks for decisions with which `run` goes wrong: from seed after seed, each of them twice,
/// since both runs must be the same to the byte. The first failure (also a crash, or 40 s on a processor without an end) is shrunk to a short
/// story, told, and kept in a file. `--help` tells the options. Gives 0 where nothing went wrong.
FN_EXPORT int searchMain(int argc, char** argv, const Run& run);

} // namespace core::simulation
