#include "skyfold/ending_signals.h"
#include <csignal>

namespace media {

EndingSignals::EndingSignals(fn::uv::Loop& loop, const std::function<void(int)>& onSignal)
    : _interrupt(loop, SIGINT, [=] { onSignal(SIGINT); }),
      _terminate(loop, SIGTERM, [=] { onSignal(SIGTERM); }),
      _hangUp(loop, SIGHUP, [=] { onSignal(SIGHUP); })
{
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
