#pragma once
#include "core/simulation/decisions.h"
#include "foundation/duration.h"
#include <cstddef>
#include <cstdint>

namespace core::simulation {

/// How rough a simulated world is. Frequencies are times in a million.
struct Options {
    /// What passes with each turn of a process at most, beside the time that passes while all wait.
    fn::Duration turnTime = fn::Duration::microseconds(100);

    std::uint32_t cuts = 250'000; ///< Reads and writes that take less than they could, one byte at least.
    std::size_t socketBytes = 64 * 1024; ///< What one direction of a pipe holds: from 512 bytes up to this.

    /// Per turn of a process that may be harmed (`Process::setExposed()`).
    std::uint32_t deaths = 0; ///< By SIGKILL, half of them inside of its next write.
    std::uint32_t freezes = 0; ///< As by SIGSTOP, or as a process that gets no processor.
    fn::Duration longestFreeze = fn::Duration::seconds(1);

    /// For a frame that comes in pieces, where such a process reads it.
    std::uint32_t failingAllocations = 0;

    std::uint32_t failingLaunches = 0; ///< The system starts no process.
    std::uint32_t hangingLaunches = 0; ///< It does, and the process never does anything.
    std::uint32_t fullQueues = 0; ///< A connect finds the listener's queue full. Not in the listener's own process.

    /// The same without faults: what a world is given for an application to come to rest.
    Options calm() const { return { .turnTime = turnTime, .cuts = cuts, .socketBytes = socketBytes }; }
};

/// For a run among many: each kind of fault is absent from half of them, and in the others so rare that an application goes on in between.
FN_EXPORT Options drawOptions(Decisions& decisions);

} // namespace core::simulation
