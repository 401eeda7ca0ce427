#include "core/ipc/object/tracing.h"
#include <atomic>
#include <random>

namespace ipc {
namespace {

constinit std::atomic<bool> isTracing = false;

} // namespace

void setCallTracing(bool isOn) noexcept { isTracing.store(isOn, std::memory_order_relaxed); }

std::uint64_t newTraceId() noexcept
{
    if (!isTracing.load(std::memory_order_relaxed)) return 0;
    // Two processes must not begin with the same number.
    static thread_local std::mt19937_64 numbers(std::random_device {}());
    return numbers() | 1; // Never 0, which stands for no trace.
}

} // namespace ipc
