#pragma once
#include "core/simulation/decisions.h"
#include <folly/Function.h>
#include <optional>
#include <string>

namespace simulated {

using Story = core::simulation::Decisions::Story;

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

std::optional<Failure> runStory(const Story& story, bool tells); ///< In a child.
Story storyOf(std::uint64_t seed); ///< The decisions of that run, as far as it came.

/// The smallest story found that still fails in the same way, within half a minute: shorter, and with tamer decisions.
Story shrink(Story story, const Failure& failure);

} // namespace simulated
