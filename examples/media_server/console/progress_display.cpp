#include "console/progress_display.h"
#include "api/text.h"
#include "console/format.h"
#include "foundation/time/clock.h"
#include <algorithm>
#include <fmt/format.h>

namespace media {
namespace {

constexpr auto barInterval = fn::Duration::milliseconds(100);
constexpr auto lineInterval = fn::Duration::seconds(2);
constexpr int widestBar = 40;
constexpr int narrowestBar = 5; // A narrower terminal shows no bar.

} // namespace

ProgressDisplay::ProgressDisplay(Output& output, fn::RunLoop& loop, bool isShown)
    : _output(output),
      _loop(loop),
      _isShown(isShown),
      _isTerminal(output.isTerminal())
{
}

ProgressDisplay::~ProgressDisplay() { removeBar(); }

fn::Duration ProgressDisplay::interval() const { return _isTerminal ? barInterval : lineInterval; }

void ProgressDisplay::update(const ScanProgress& progress)
{
    if (progress.walking != _progress.walking) _rate = {}; // First of found files, then of done ones.
    _progress = progress;
    _rate.add(_loop.clock().monotonic(), progress.walking ? progress.found : progress.done);
}

void ProgressDisplay::note(std::string_view line)
{
    if (!_isShown) return;
    removeBar();
    _output.write(fmt::format("{}\n", line));
}

void ProgressDisplay::draw()
{
    if (!_isShown) return;
    if (!_isTerminal) return _output.write(text() + "\n");
    _output.write(fmt::format("{}{}", eraseLine, bar(text())));
    _barIsDrawn = true;
}

void ProgressDisplay::removeBar()
{
    if (std::exchange(_barIsDrawn, false)) _output.write(eraseLine);
}

std::string ProgressDisplay::text() const
{
    const auto rate = _rate.perSecond();
    if (_progress.walking) return fmt::format("Looking for files: {}", formatCount(_progress.found));
    auto text = fmt::format("{} of {} files", formatCount(_progress.done), formatCount(_progress.found));
    if (rate > 0) {
        const auto left = static_cast<double>(_progress.found - _progress.done) / rate;
        text += fmt::format(", {} a second, {} left", formatCount(static_cast<std::int64_t>(rate)),
            formatTime(fn::Duration(static_cast<std::int64_t>(std::min(left, 1e9) * 1e6))));
    }
    return text;
}

/// The text with a bar in front where there is room, cut to one line.
std::string ProgressDisplay::bar(std::string_view text) const
{
    const int columns = _output.columns() - 1; // A full line would wrap.
    const int width = std::min(widestBar, columns - static_cast<int>(text.size()) - 3);
    if (_progress.walking || width < narrowestBar) {
        return std::string(text.substr(0, static_cast<std::size_t>(std::max(columns, 0))));
    }
    const auto full = _progress.found > 0 ? _progress.done * width / _progress.found : 0;
    return fmt::format("[{}{}] {}", std::string(static_cast<std::size_t>(full), '#'),
        std::string(static_cast<std::size_t>(width - full), '.'), text);
}

} // namespace media
