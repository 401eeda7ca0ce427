#pragma once
#include "core/simulation/decisions.h"
#include "foundation/duration.h"
#include <cstddef>
#include <cstdint>

namespace core::simulation {

/// How rough a simulated world is. Frequencies are times in a million.
struct Options {
    /// The most time that passes with one turn of a process. More passes while all processes wait.
    fn::Duration turnTime = fn::Duration::microseconds(100);

    std::uint32_t cuts = 250'000; ///< Reads and writes that take fewer bytes than they could.
    std::size_t socketBytes = 64 * 1024; ///< A direction of a pipe holds from 512 bytes up to this.

    /// Deaths and freezes count for each turn of a process that may be harmed (`Process::setExposed()`).
    std::uint32_t deaths = 0; ///< The process dies of SIGKILL, half of the times inside of its next write.
    std::uint32_t freezes = 0; ///< The process does not run for a time, as after SIGSTOP or without a processor.
    fn::Duration longestFreeze = fn::Duration::seconds(1); ///< A freeze takes up to this, in virtual time.

    /// There is no memory for a frame that comes in pieces and that such a process reads.
    std::uint32_t failingAllocations = 0;

    std::uint32_t failingLaunches = 0; ///< The system starts no process.
    std::uint32_t hangingLaunches = 0; ///< The system starts a process that never does anything.
    std::uint32_t fullQueues = 0; ///< A connect from another process finds the listener's queue full.

    /// These options without faults, with which an application can come to rest.
    Options calm() const { return { .turnTime = turnTime, .cuts = cuts, .socketBytes = socketBytes }; }
};

/// Options for one run of many: half of the runs lack a given kind of fault, and in the others it is rare.
FN_EXPORT Options drawOptions(Decisions& decisions);

} // namespace core::simulation
