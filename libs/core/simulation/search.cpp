#include "core/simulation/search.h"
#include "core/simulation/detail/shrinker.h"
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <random>
#include <sstream>

namespace core::simulation {
namespace {

using Clock = std::chrono::steady_clock;

struct Totals {
    std::uint64_t runs = 0;
    std::uint64_t steps = 0;
    double virtualSeconds = 0;
    Clock::time_point begin = Clock::now();

    double seconds() const { return std::chrono::duration<double>(Clock::now() - begin).count(); }
    void print() const
    {
        fmt::print("{} runs, {} steps, {:.0f} s of virtual time in {:.0f} s: {:.0f} steps/s\n", runs, steps,
            virtualSeconds, seconds(), static_cast<double>(steps) / seconds());
        std::fflush(stdout);
    }
};

/// Runs `count` seeds from `seed` on in a child process, each of them twice: both runs must be the same to the byte.
std::optional<Failure> runSeeds(const Run& run, std::uint64_t seed, std::uint64_t count, Totals& totals)
{
    return inChild(
        [&](Shared& shared) {
            for (auto current = seed; current < seed + count; ++current) {
                shared.seed = current;
                Decisions first(current);
                const auto report = run(first, false);
                ++shared.runs;
                shared.steps += report.steps;
                shared.virtualSeconds += report.seconds;
                if (!report.violations.empty()) return report.violations.front();
                Decisions second(current);
                const auto again = run(second, false);
                if (again.hash == report.hash) continue;
                std::string what = "the same seed gave two different runs";
                return again.violations.empty() ? what : what + ", the second: " + again.violations.front();
            }
            return std::string();
        },
        [&](const Shared& shared) {
            totals.runs += shared.runs;
            totals.steps += 2 * shared.steps;
            totals.virtualSeconds += 2 * shared.virtualSeconds;
        });
}

std::string read(const std::filesystem::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

void tell(const Run& run, const Failure& failure, const std::filesystem::path& keep)
{
    fmt::print("\nFAILED with seed {}: {}\n", failure.seed, failure.what);
    if (keep.empty()) return;
    fmt::print("Shrinking it ...\n");
    std::fflush(stdout);
    const auto story = shrink(run, storyOf(run, failure.seed), failure);
    fmt::print("\nWhat happens in the shrunk run:\n\n");
    std::fflush(stdout);
    runStory(run, story, true);
    std::ofstream(keep) << "# " << failure.what << "\n" << Decisions::toText(story);
    fmt::print("\nThe story is kept in {}; seed {}: {}\n", keep.string(), failure.seed, failure.what);
}

/// If `keep` is empty, no story is made of a failure.
int searchFor(const Run& run, double seconds, std::uint64_t seed, const std::filesystem::path& keep)
{
    constexpr std::uint64_t batch = 25;
    fmt::print("Seeds from {} on, for {:.0f} s.\n", seed, seconds);
    Totals totals;
    for (double nextReport = 5; totals.seconds() < seconds; seed += batch) {
        if (const auto failure = runSeeds(run, seed, batch, totals)) {
            tell(run, *failure, keep);
            return 1;
        }
        if (totals.seconds() < nextReport) continue;
        totals.print();
        nextReport += 5;
    }
    totals.print();
    return totals.runs > 0 ? 0 : 1;
}

int runStories(const Run& run, const std::vector<std::string>& paths, bool tells)
{
    int failures = 0;
    for (const auto& path : paths) {
        const auto failure = runStory(run, Decisions::fromText(read(path)), tells);
        fmt::print("{}: {}\n", path, failure ? failure->what : "ok");
        failures += failure ? 1 : 0;
    }
    return failures == 0 ? 0 : 1;
}

} // namespace

int searchMain(int argc, char** argv, const Run& run)
{
    CLI::App app(
        "Runs a whole application in a simulated world, again and again, with everything that can go wrong in it.");
    double seconds = 10;
    std::uint64_t seed = std::random_device()();
    std::filesystem::path keep = "failed.story";
    std::vector<std::string> stories;
    bool tells = false;
    bool isBrief = false;
    app.add_option("--seconds", seconds, "How long to go on");
    app.add_option("--seed", seed, "The first seed; a random one if there is none");
    app.add_option("--keep", keep, "Where the story of a failure is kept");
    app.add_option("stories", stories, "Runs these stories instead");
    app.add_flag("--tell", tells, "Tells what happens in them, or with this seed");
    app.add_flag("--brief", isBrief, "Makes no story of a failure");
    CLI11_PARSE(app, argc, argv);
    if (isBrief) keep.clear();
    try {
        if (stories.empty() && tells) return runStory(run, storyOf(run, seed), true) ? 1 : 0;
        return stories.empty() ? searchFor(run, seconds, seed, keep) : runStories(run, stories, tells);
    } catch (const std::exception& exception) {
        fmt::print(stderr, "{}: {}\n", argv[0], exception.what());
        return 2;
    }
}

} // namespace core::simulation
