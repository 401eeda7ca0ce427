#pragma once
#include "foundation/uv/signal_watcher.h"
#include <functional>

namespace media {

/// While it lives, SIGINT, SIGTERM and SIGHUP end nothing by themselves: `onSignal` is called with their number.
class EndingSignals {
public:
    EndingSignals(fn::uv::Loop& loop, const std::function<void(int signal)>& onSignal);

private:
    const fn::uv::SignalWatcher _interrupt;
    const fn::uv::SignalWatcher _terminate;
    const fn::uv::SignalWatcher _hangUp;
};

/// Runs the loop until somebody stops it, or until one of those signals does: the signal's number then, else 0.
int runUntilSignal(fn::uv::Loop& loop);

} // namespace media
