// What can break here: a module launched again for ever or never, at once or too late, or one whose old ends are never forgotten.
#include "core/ipc/module_manager/detail/relaunches.h"
#include <gtest/gtest.h>

namespace {

using enum ipc::Relaunches::End;
using fn::Duration;

struct Step {
    ipc::Relaunches::End end;
    int seconds; // When, since the beginning.
    int ranFor; // Seconds.
    int delay; // Milliseconds until the next launch; -1: given up.
};

struct Row {
    const char* what;
    ipc::RelaunchPolicy policy;
    std::vector<Step> steps;
};

const Row rows[] {
    { "a second for ever", {}, { { Exited, 0, 0, 1000 }, { Silent, 1, 0, 1000 }, { Exited, 2, 9, 1000 } } },
    { "an early exit of the first launch, then of a later one", {},
        { { ExitedEarly, 0, 0, 1000 }, { ExitedEarly, 2, 0, -1 } } },
    { "an early exit of a launch that is not the first", {}, { { Exited, 0, 0, 1000 }, { ExitedEarly, 2, 0, -1 } } },
    { "the second time-out ever", {},
        { { TimedOut, 0, 0, 1000 }, { Exited, 99, 90, 1000 }, { TimedOut, 999, 0, -1 } } },
    { "growth up to the most", { .delay = Duration::milliseconds(500), .growth = 3, .mostDelay = Duration::seconds(4) },
        { { Exited, 0, 0, 500 }, { Exited, 1, 0, 1500 }, { Exited, 3, 0, 4000 }, { Exited, 9, 999, 4000 } } },
    { "a growth that no number holds", { .growth = 1e300, .mostDelay = Duration::seconds(7) },
        { { Exited, 0, 0, 1000 }, { Exited, 1, 0, 7000 } } },
    { "a first delay that is longer than the most", { .delay = Duration::seconds(90), .growth = 2 },
        { { Exited, 0, 0, 90000 }, { Exited, 1, 0, 90000 } } },
    { "all is forgotten after a good while", { .growth = 2, .resetAfter = Duration::seconds(10), .limit = 2 },
        { { Exited, 0, 0, 1000 }, { Exited, 1, 9, 2000 }, { Exited, 20, 10, 1000 }, { Exited, 21, 1, 2000 },
            { Exited, 22, 1, -1 } } },
    { "a limit ever, whatever the ends are", { .limit = 3 },
        { { TimedOut, 0, 0, 1000 }, { ExitedEarly, 1, 0, 1000 }, { TimedOut, 2, 0, 1000 }, { Silent, 9999, 0, -1 } } },
    { "a limit within a time", { .limit = 2, .within = Duration::seconds(10) },
        { { Exited, 0, 0, 1000 }, { Exited, 9, 0, 1000 }, { Exited, 11, 0, 1000 }, { Exited, 12, 0, -1 } } },
    { "one launch", { .limit = 0 }, { { Exited, 0, 0, -1 } } },
};

} // namespace

TEST(Relaunches, FollowTheirPolicy)
{
    for (const auto& [what, policy, steps] : rows) {
        SCOPED_TRACE(what);
        ipc::Relaunches relaunches(policy);
        for (const auto& step : steps) {
            relaunches.launched();
            const auto delay =
                relaunches.after(step.end, Duration::seconds(step.seconds), Duration::seconds(step.ranFor));
            EXPECT_EQ(delay ? delay->totalMilliseconds() : -1, step.delay) << "after " << step.seconds << " s";
        }
    }
}
