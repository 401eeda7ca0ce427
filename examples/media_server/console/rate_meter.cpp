#include "console/rate_meter.h"

namespace media {
namespace {

constexpr auto window = fn::Duration::seconds(10);

} // namespace

void RateMeter::add(fn::Duration now, std::int64_t count)
{
    if (!_samples.empty() && count < _samples.back().count) _samples.clear();
    _samples.push_back({ now, count });
    while (_samples.size() > 2 && now - _samples[1].time >= window) _samples.pop_front();
}

double RateMeter::perSecond() const
{
    if (_samples.size() < 2) return 0;
    const auto time = (_samples.back().time - _samples.front().time).totalSeconds();
    return time > 0 ? static_cast<double>(_samples.back().count - _samples.front().count) / time : 0;
}

} // namespace media
