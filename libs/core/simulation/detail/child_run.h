#pragma once
#include "core/simulation/search.h"
#include <folly/Function.h>
#include <optional>

namespace core::simulation {

struct Failure {
    std::uint64_t seed = 0;
    std::string what;
};

/// What a child tells while it runs, so that it is known also when it crashes.
struct Shared {
    std::uint64_t seed;
    std::uint64_t runs;
    std::uint64_t steps;
    double virtualSeconds;
    char what[4096];
};

/// Runs `body` in a child process, since an abort or an exit would end this one. It gives "" or what was wrong.
std::optional<Failure> inChild(
    folly::Function<std::string(Shared&)> body, folly::Function<void(const Shared&)> account = {});

std::optional<Failure> runStory(const Run& run, const Decisions::Story& story, bool tells); ///< In a child.
Decisions::Story storyOf(const Run& run, std::uint64_t seed); ///< The decisions of that run, as far as it came.

} // namespace core::simulation
