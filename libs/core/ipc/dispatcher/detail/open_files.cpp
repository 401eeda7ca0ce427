#include "core/ipc/dispatcher/detail/open_files.h"
#include "foundation/logging/logging.h"
#include "foundation/time/clock.h"
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

namespace ipc {
namespace {

FN_LOG_CATEGORY("ipc.dispatcher");

// The warning comes when at most this many files are left. Each connection opens one, other parts of the process some more.
constexpr std::uint64_t fewOpenFiles = 16;
constexpr auto warningInterval = fn::Duration::seconds(60);

} // namespace

OpenFiles openFiles() noexcept
{
    rlimit limit {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const int lowestFree = ::eventfd(0, EFD_CLOEXEC); // The system gives the lowest free number: all below it are open.
    if (lowestFree < 0) return { limit.rlim_cur, 0 };
    ::close(lowestFree);
    return { limit.rlim_cur, limit.rlim_cur - static_cast<std::uint64_t>(lowestFree) };
}

void OpenFilesWarning::check(const fn::Clock& clock)
{
    const auto [limit, left] = openFiles();
    if (left > fewOpenFiles) return;
    const auto now = clock.monotonic();
    if (_warnedAt && now - *_warnedAt < warningInterval) return;
    _warnedAt = now;
    FN_LOG(Warning,
        "Of the {} files that this process may have open at most {} are left: who connects when there are none is "
        "refused. Raise the limit (ulimit -n, or LimitNOFILE of its service)",
        limit, left);
}

} // namespace ipc
