#pragma once
#include "foundation/uv/signal_watcher.h"
#include <functional>
#include <memory>
#include <vector>

namespace media {

/// While this object exists, SIGINT, SIGTERM and SIGHUP do not end the process, unless it ignores them: `onSignal` is called with their number.
class EndingSignals {
public:
    EndingSignals(fn::uv::Loop& loop, const std::function<void(int signal)>& onSignal);

private:
    std::vector<std::unique_ptr<fn::uv::SignalWatcher>> _watchers;
};

/// Runs the loop until other code stops it, or one of those signals does. Gives the signal's number, or 0.
int runUntilSignal(fn::uv::Loop& loop);

} // namespace media
