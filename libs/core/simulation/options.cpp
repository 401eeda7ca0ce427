#include "core/simulation/options.h"

namespace core::simulation {

Options drawOptions(Decisions& decisions)
{
    const auto rate = [&](std::uint32_t most) {
        return decisions.choose(Choice::Fault, 2) == 0 ? 0 : decisions.choose(Choice::Fault, most);
    };
    Options options;
    options.cuts = rate(500'000);
    options.socketBytes = std::size_t(1) << (17 - decisions.choose(Choice::Bytes, 10));
    options.deaths = rate(6'000);
    options.freezes = rate(6'000);
    options.longestFreeze = fn::Duration::milliseconds(20 << decisions.choose(Choice::Fault, 10));
    options.failingAllocations = rate(20'000);
    options.failingLaunches = rate(300'000);
    options.hangingLaunches = rate(300'000);
    options.fullQueues = rate(500'000);
    return options;
}

} // namespace core::simulation
