#include "platform/operating_system_version.h"
#include <sys/utsname.h>

namespace platform {

template class ScopedOverride<GetVersionExW>;

namespace {

constexpr DWORD platformNT = 2; // VER_PLATFORM_WIN32_NT
constexpr BYTE workstation = 1; // VER_NT_WORKSTATION

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
    const auto answer = ScopedOperatingSystemVersion::current();
    return answer ? answer(information) : queryKernel(*information);
}

} // namespace platform
