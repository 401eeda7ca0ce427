#pragma once
#include "foundation/run_loop.h"
#include <chrono>
#include <folly/Function.h>

namespace test {

/// Runs `loop` until `condition` holds, which is looked at after every turn; false when it does not within the bound
/// (of real time, whatever clock the loop follows).
bool runUntil(
    fn::RunLoop& loop, folly::Function<bool()> condition, std::chrono::milliseconds bound = std::chrono::seconds(20));

/// Runs a number of turns of the loop: what is due now, and what follows from it at once.
void runTurns(fn::RunLoop& loop, int count = 20);

} // namespace test
