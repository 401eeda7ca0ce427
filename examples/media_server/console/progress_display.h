#pragma once
#include "api/scan_types.h"
#include "console/output.h"
#include "console/rate_meter.h"
#include "foundation/run_loop.h"
#include <string>

namespace media {

/// Shows how far a scan has come: a bar that is drawn over again on a terminal, a line every two seconds elsewhere.
class ProgressDisplay {
public:
    /// Borrows the output. One that is not shown writes nothing.
    ProgressDisplay(Output& output, fn::RunLoop& loop, bool isShown);
    ProgressDisplay(const ProgressDisplay&) = delete;
    ~ProgressDisplay(); ///< Removes the bar.

    fn::Duration interval() const; ///< The time between two drawings.
    void draw();
    void update(const ScanProgress& progress); ///< Shown by the next drawing.
    void note(std::string_view line); ///< Writes a line that stays.
    void removeBar();

private:
    std::string text() const;
    std::string bar(std::string_view text) const;

    Output& _output;
    fn::RunLoop& _loop;
    const bool _isShown;
    const bool _isTerminal;
    ScanProgress _progress;
    RateMeter _rate;
    bool _barIsDrawn = false;
};

} // namespace media
