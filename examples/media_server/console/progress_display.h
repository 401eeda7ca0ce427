#pragma once
#include "api/scan_types.h"
#include "console/output.h"
#include "console/rate_meter.h"
#include "foundation/run_loop.h"
#include <folly/Function.h>
#include <string>

namespace media {

/// Shows how far a scan has come: a bar that is drawn over again on a terminal, a line every two seconds elsewhere.
class ProgressDisplay {
public:
    /// `output` is borrowed. `onBroken` is called once, from a timer, when writing has failed.
    ProgressDisplay(Output& output, fn::RunLoop& loop, folly::Function<void()> onBroken);
    ~ProgressDisplay(); ///< Removes the bar.

    void update(const ScanProgress& progress); ///< Shown at the next time to draw.
    void note(std::string_view line); ///< Writes a line that stays.

private:
    void schedule();
    void draw();
    void eraseBar();
    std::string text() const;
    std::string bar(std::string_view text) const;

    Output& _output;
    fn::RunLoop& _loop;
    folly::Function<void()> _onBroken;
    const bool _isTerminal;
    fn::Handle _timer;
    ScanProgress _progress;
    RateMeter _rate;
    bool _barIsDrawn = false;
};

} // namespace media
