#pragma once
#include "foundation/uv/signal_watcher.h"
#include <functional>

namespace media {

/// While this object exists, SIGINT, SIGTERM and SIGHUP do not end the process: `onSignal` is called with their number.
class EndingSignals {
public:
    EndingSignals(fn::uv::Loop& loop, const std::function<void(int signal)>& onSignal);

private:
    const fn::uv::SignalWatcher _interrupt;
    const fn::uv::SignalWatcher _terminate;
    const fn::uv::SignalWatcher _hangUp;
};

/// Runs the loop until other code stops it, or one of those signals does. Gives the signal's number, or 0.
int runUntilSignal(fn::uv::Loop& loop);

} // namespace media
