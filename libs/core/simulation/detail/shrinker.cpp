#include "core/simulation/detail/shrinker.h"
#include <algorithm>
#include <chrono>

namespace core::simulation {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto shrinkingTime = std::chrono::seconds(30);

/// The same failure has the same text but for its numbers.
std::string kindOf(std::string what)
{
    std::erase_if(what, [](char c) { return c >= '0' && c <= '9'; });
    return what;
}

class Shrinker {
public:
    Shrinker(const Run& run, Decisions::Story story, const Failure& failure)
        : _run(run),
          _story(std::move(story)),
          _kind(kindOf(failure.what))
    {
    }

    Decisions::Story shrink()
    {
        for (bool improves = true; improves && !isLate();) {
            improves = false;
            for (auto& decisions : _story) improves = cut(decisions) || improves;
            for (auto& decisions : _story) improves = tame(decisions) || improves;
        }
        return _story;
    }

private:
    bool isLate() const { return Clock::now() > _end; }

    bool stillFails() const
    {
        const auto failure = runStory(_run, _story, false);
        return failure && kindOf(failure->what) == _kind;
    }

    /// Keeps a change if the story fails with it.
    bool tryTo(std::vector<std::uint32_t>& decisions, std::vector<std::uint32_t> changed)
    {
        if (changed == decisions || isLate()) return false;
        decisions.swap(changed);
        if (stillFails()) return true;
        decisions.swap(changed);
        return false;
    }

    bool cut(std::vector<std::uint32_t>& decisions)
    {
        bool improves = false;
        for (auto part = decisions.size() / 2; part > 0 && !isLate(); part /= 2) {
            while (decisions.size() >= part
                && tryTo(decisions, { decisions.begin(), decisions.end() - static_cast<std::ptrdiff_t>(part) })) {
                improves = true;
            }
        }
        return improves;
    }

    bool tame(std::vector<std::uint32_t>& decisions)
    {
        bool improves = false;
        for (auto part = std::max<std::size_t>(decisions.size() / 2, 1);; part /= 2) {
            for (std::size_t from = 0; from < decisions.size() && !isLate(); from += part) {
                auto changed = decisions;
                std::fill_n(
                    changed.begin() + static_cast<std::ptrdiff_t>(from), std::min(part, changed.size() - from), 0);
                improves = tryTo(decisions, std::move(changed)) || improves;
            }
            if (part == 1 || isLate()) return improves;
        }
    }

    const Run& _run;
    Decisions::Story _story;
    const std::string _kind;
    const Clock::time_point _end = Clock::now() + shrinkingTime;
};

} // namespace

Decisions::Story shrink(const Run& run, Decisions::Story story, const Failure& failure)
{
    return Shrinker(run, std::move(story), failure).shrink();
}

} // namespace core::simulation
