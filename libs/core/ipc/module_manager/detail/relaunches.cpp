#include "core/ipc/module_manager/detail/relaunches.h"
#include "base/exceptions.h"
#include <algorithm>
#include <fmt/format.h>

namespace ipc {
namespace {

constexpr int toleratedTimeouts = 1;
constexpr int toleratedEarlyExits = 1; // Launches of a module whose process may exit before its worker connects.

} // namespace

void Relaunches::check(const RelaunchPolicy& policy)
{
    const fn::Duration none;
    const bool isRight = policy.delay >= none && policy.growth >= 1 && policy.mostDelay >= none
        && policy.resetAfter >= none && policy.limit.value_or(0) >= 0 && policy.within >= none;
    if (isRight) return;
    throw fn::RangeException(
        "A relaunch policy has no negative times and no negative limit, and a growth of 1 at least");
}

void Relaunches::reset()
{
    _nextDelay = _policy.delay;
    _relaunches.clear();
    _launches = 0;
    _timeouts = 0;
}

std::optional<fn::Duration> Relaunches::after(End end, fn::Duration now, fn::Duration ranFor)
{
    if (_policy.resetAfter > fn::Duration() && ranFor >= _policy.resetAfter) reset();
    if (!isAllowed(end, now)) return std::nullopt;
    const auto most = std::max(_policy.mostDelay, _policy.delay);
    const fn::Duration grown(std::chrono::duration<double, std::micro>(
        static_cast<double>(_nextDelay.totalMicroseconds()) * _policy.growth));
    return std::exchange(_nextDelay, std::min(grown, most));
}

bool Relaunches::isAllowed(End end, fn::Duration now)
{
    if (!hasLimit()) {
        if (end == End::TimedOut) return ++_timeouts <= toleratedTimeouts;
        return end != End::ExitedEarly || _launches <= toleratedEarlyExits;
    }
    if (_policy.within > fn::Duration())
        std::erase_if(_relaunches, [&](auto time) { return now - time > _policy.within; });
    if (std::ssize(_relaunches) >= *_policy.limit) return false;
    _relaunches.push_back(now);
    return true;
}

fn::String Relaunches::limitText() const
{
    if (_policy.limit.value_or(0) == 0) return {};
    const auto text = fmt::format(", after {} {}", *_policy.limit, *_policy.limit == 1 ? "time" : "times");
    return _policy.within > fn::Duration() ? text + fmt::format(" within {}", _policy.within) : text;
}

} // namespace ipc
