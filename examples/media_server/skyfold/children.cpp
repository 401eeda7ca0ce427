#include "skyfold/children.h"
#include "foundation/time/clock.h"
#include "foundation/uv/signal_watcher.h"
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/wait.h>

namespace media {

bool hasChildren()
{
    siginfo_t info {};
    return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 || errno != ECHILD;
}

void awaitChildren(fn::uv::Loop& loop, fn::Duration most)
{
    bool isOver = false;
    const auto timer = loop.schedule(most, [&] {
        isOver = true;
        loop.stop();
    });
    // The loop itself waits for children in the turn in which they end, and drops them in it: so look behind that.
    const auto look = [&loop] {
        if (!hasChildren()) loop.stop();
    };
    const fn::uv::SignalWatcher ended(loop, SIGCHLD, [&] { loop.post(look); });
    loop.post(look); // For those whose end has been signalled already, but not seen by the loop.
    while (!isOver && hasChildren()) loop.run();
}

void reapChildren(fn::Duration most)
{
    constexpr int pauseMilliseconds = 2;
    const auto& clock = fn::Clock::system();
    const auto end = clock.monotonic() + most;
    while (clock.monotonic() < end) {
        const auto ended = ::waitpid(-1, nullptr, WNOHANG);
        if (ended < 0 && errno == ECHILD) return;
        if (ended <= 0) ::poll(nullptr, 0, pauseMilliseconds);
    }
}

} // namespace media
