#include "core/ipc/object/tracing.h"
#include "foundation/system/process_local.h"
#include "foundation/system/uuid.h"
#include <atomic>
#include <functional>

namespace ipc {
namespace {

/// Two processes must not begin with the same number.
std::uint64_t randomNumber()
{
    const auto uuid = fn::UUIDGenerator::defaultGenerator().createOne();
    return std::hash<std::string_view>()(uuid.toString().view());
}

struct Tracing {
    std::atomic<bool> isOn = false;
    std::atomic<std::uint64_t> next = randomNumber();
};

Tracing& tracing()
{
    static fn::ProcessLocal<Tracing> state;
    return state.get();
}

} // namespace

void setCallTracing(bool isOn) { tracing().isOn.store(isOn, std::memory_order_relaxed); }

std::uint64_t newTraceId()
{
    auto& state = tracing();
    if (!state.isOn.load(std::memory_order_relaxed)) return 0;
    constexpr std::uint64_t step = 0x9E3779B97F4A7C15; // Odd, so that no number comes twice; its bits are mixed.
    return state.next.fetch_add(step, std::memory_order_relaxed) | 1; // Never 0, which stands for no trace.
}

} // namespace ipc
