#pragma once
#include "foundation/run_loop.h"
#include <chrono>
#include <folly/Function.h>

namespace test {

/// Runs `loop` until `condition` holds, which is looked at after every turn; false when it does not within the bound
/// (of real time, whatever clock the loop follows).
bool runUntil(
    fn::RunLoop& loop, folly::Function<bool()> condition, std::chrono::milliseconds bound = std::chrono::seconds(20));

/// Runs `loop` until nothing is on its way any more among those who are all on it: a local socket's bytes can be read as soon as
/// they are written. Timers wait. For a loop that follows a manual clock.
void settle(fn::RunLoop& loop);

/// Runs a number of turns of the loop: what is due now, and what follows from it at once.
void runTurns(fn::RunLoop& loop, int count = 20);

} // namespace test
