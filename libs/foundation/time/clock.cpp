#include "foundation/time/clock.h"
#include "foundation/time/detail/clock_private.h"
#include "foundation/uv/system.h"
#include <chrono>

namespace fn {
namespace {

// Where a manual clock starts: 2020-01-01 00:00:00 UTC.
constexpr auto manualEpoch = Duration::seconds(1'577'836'800);

template <typename ChronoClock> Duration sinceStart()
{
    const auto time = ChronoClock::now().time_since_epoch();
    return Duration(std::chrono::duration_cast<std::chrono::microseconds>(time).count());
}

class SystemClock final : public Clock {
public:
    Duration monotonic() const override { return sinceStart<std::chrono::steady_clock>(); }
    Duration sinceEpoch() const override { return sinceStart<std::chrono::system_clock>(); }
};

} // namespace

Clock::~Clock() = default;

const Clock& Clock::system()
{
    if (const auto* simulated = uv::System::current()) [[unlikely]]
        return simulated->clock();
    static const auto& clock = *new SystemClock; // Never destroyed: loops of static duration may read it.
    return clock;
}

void ManualClock::Private::add(ClockFollower& follower)
{
    const std::lock_guard guard(lock);
    followers.push_back(&follower);
}

void ManualClock::Private::remove(ClockFollower& follower)
{
    const std::lock_guard guard(lock);
    std::erase(followers, &follower);
}

void ManualClock::Private::advance(std::int64_t microseconds)
{
    elapsed.fetch_add(microseconds, std::memory_order_release);
    const std::lock_guard guard(lock);
    for (auto* follower : followers) follower->clockAdvanced();
}

ManualClock::ManualClock() : _private(new Private) { }

ManualClock::~ManualClock() { delete _private; }

Duration ManualClock::monotonic() const { return Duration(_private->elapsed.load(std::memory_order_acquire)); }

Duration ManualClock::sinceEpoch() const { return manualEpoch + monotonic(); }

void ManualClock::advance(Duration by) { _private->advance(by.totalMicroseconds()); }

} // namespace fn
