#pragma once
#include "core/simulation/search.h"
#include <folly/Function.h>
#include <optional>

namespace core::simulation {

struct Failure {
    std::uint64_t seed = 0;
    std::string what;
};

/// What a child process has told until it ended, also by a crash.
struct Shared {
    std::uint64_t seed;
    std::uint64_t runs;
    std::uint64_t steps;
    double virtualSeconds;
    char what[4096];
};

/// Runs `body` in a child process, since an abort or an exit would end this one. `body` gives "" or the failure.
std::optional<Failure> inChild(
    folly::Function<std::string(Shared&)> body, folly::Function<void(const Shared&)> account = {});

std::optional<Failure> runStory(const Run& run, const Decisions::Story& story, bool tells); ///< In a child process.
Decisions::Story storyOf(const Run& run, std::uint64_t seed); ///< The decisions of a run, until it ended or crashed.

} // namespace core::simulation
