#include "platform/operating_system_version.h"
#include <cstdio>
#include <mutex>
#include <sys/utsname.h>
#include <utility>

namespace platform {
namespace {

constexpr DWORD platformNT = 2; // VER_PLATFORM_WIN32_NT
constexpr BYTE workstation = 1; // VER_NT_WORKSTATION

std::mutex overrideLock;

ScopedOperatingSystemVersion::Query& overriddenQuery() // Empty: none. Guarded by `overrideLock`.
{
    static auto& query = *new ScopedOperatingSystemVersion::Query;
    return query;
}

BOOL queryKernel(OSVERSIONINFOEXW& information)
{
    utsname names;
    unsigned major = 0;
    unsigned minor = 0;
    if (::uname(&names) != 0 || std::sscanf(names.release, "%u.%u", &major, &minor) != 2) return 0;
    information = OSVERSIONINFOEXW {};
    information.dwOSVersionInfoSize = sizeof(information);
    information.dwMajorVersion = major;
    information.dwMinorVersion = minor;
    information.dwPlatformId = platformNT;
    information.wProductType = workstation;
    return 1;
}

} // namespace

BOOL GetVersionExW(OSVERSIONINFOEXW* information)
{
    if (!information || information->dwOSVersionInfoSize != sizeof(*information)) return 0;
    ScopedOperatingSystemVersion::Query query;
    {
        const std::lock_guard guard(overrideLock);
        query = overriddenQuery();
    }
    return query ? query(*information) : queryKernel(*information);
}

ScopedOperatingSystemVersion::ScopedOperatingSystemVersion(Query query)
{
    const std::lock_guard guard(overrideLock);
    _previous = std::exchange(overriddenQuery(), std::move(query));
}

ScopedOperatingSystemVersion::~ScopedOperatingSystemVersion()
{
    const std::lock_guard guard(overrideLock);
    overriddenQuery() = std::move(_previous);
}

} // namespace platform
