#include "skyfold/ending_signals.h"
#include <csignal>

namespace media {

EndingSignals::EndingSignals(fn::uv::Loop& loop, const std::function<void(int)>& onSignal)
{
    for (const int signal : { SIGINT, SIGTERM, SIGHUP }) {
        if (fn::uv::SignalWatcher::isIgnored(signal)) continue;
        _watchers.push_back(std::make_unique<fn::uv::SignalWatcher>(loop, signal, [=] { onSignal(signal); }));
    }
}

int runUntilSignal(fn::uv::Loop& loop)
{
    int received = 0;
    const EndingSignals signals(loop, [&](int signal) {
        received = signal;
        loop.stop();
    });
    loop.run();
    return received;
}

} // namespace media
