#include "core/ipc/dispatcher/open_files.h"
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

namespace ipc {

OpenFiles openFiles() noexcept
{
    rlimit limit {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const int lowestFree = ::eventfd(0, EFD_CLOEXEC); // The system gives the lowest number: all below it are open.
    if (lowestFree < 0) return { limit.rlim_cur, 0 };
    ::close(lowestFree);
    return { limit.rlim_cur, limit.rlim_cur - static_cast<std::uint64_t>(lowestFree) };
}

} // namespace ipc
