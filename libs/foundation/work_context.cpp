#include "foundation/work_context.h"
#include "foundation/run_loop.h"
#include "foundation/time/clock.h"
#include <algorithm>
#include <utility>

namespace fn {
namespace {

Duration now()
{
    const auto* loop = RunLoop::currentLoop();
    return (loop ? loop->clock() : Clock::system()).monotonic();
}

} // namespace

constinit thread_local WorkContext WorkContext::_current;

WorkContext WorkContext::current() noexcept { return _current; }

WorkContext WorkContext::within(Duration limit) const
{
    auto result = *this;
    result._deadline = std::min(_deadline, now() + limit);
    return result;
}

std::optional<Duration> WorkContext::remainingTime() const
{
    if (_deadline == never) return std::nullopt;
    return std::max(_deadline - now(), Duration());
}

ScopedContext::ScopedContext(const WorkContext& context) noexcept
    : _before(std::exchange(WorkContext::_current, context))
{
}

ScopedContext::~ScopedContext() { WorkContext::_current = _before; }

} // namespace fn
