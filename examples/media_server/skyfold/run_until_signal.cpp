#include "skyfold/run_until_signal.h"
#include "foundation/uv/signal_watcher.h"
#include <csignal>

namespace media {

int runUntilSignal(fn::uv::Loop& loop)
{
    int received = 0;
    const auto end = [&](int signal) {
        received = signal;
        loop.stop();
    };
    const fn::uv::SignalWatcher interrupt(loop, SIGINT, [&] { end(SIGINT); });
    const fn::uv::SignalWatcher terminate(loop, SIGTERM, [&] { end(SIGTERM); });
    loop.run();
    return received;
}

} // namespace media
