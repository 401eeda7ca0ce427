#pragma once
#include "foundation/run_loop.h"
#include <chrono>
#include <folly/Function.h>

namespace test {

/// Runs `loop` until `condition` holds; false when it does not within the bound (of real time, whatever clock the loop follows).
/// The loop blocks between its turns, so a wake-up that is missed shows as a time-out. `condition` is looked at after each turn and
/// does not run the loop itself.
bool runUntil(
    fn::RunLoop& loop, folly::Function<bool()> condition, std::chrono::milliseconds bound = std::chrono::seconds(20));

/// The same for a condition that becomes true outside `loop`, which nobody tells it: the loop does not block.
bool spinUntil(fn::RunLoop& loop, folly::Function<bool()> condition);

/// Runs `loop` until nothing is on its way any more among those who are all on it: a local socket's bytes can be read as soon as
/// they are written. Timers wait. For a loop that follows a manual clock.
void settle(fn::RunLoop& loop);

/// Runs a number of turns of the loop: what is due now, and what follows from it at once.
void runTurns(fn::RunLoop& loop, int count = 20);

/// Runs `step` inside of a loop of its own, and what follows from it at once.
void onLoop(folly::Function<void()> step);

} // namespace test
