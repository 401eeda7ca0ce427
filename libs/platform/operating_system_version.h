#pragma once
#include "base/export.h"
#include "platform/scoped_override.h"
#include "platform/windows_types.h"

namespace platform {

struct OSVERSIONINFOEXW {
    DWORD dwOSVersionInfoSize; ///< Set by the caller: 284.
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    char16_t szCSDVersion[128]; ///< Service pack, zero-terminated UTF-16; empty here.
    WORD wServicePackMajor;
    WORD wServicePackMinor;
    WORD wSuiteMask;
    BYTE wProductType;
    BYTE wReserved;
};
static_assert(sizeof(OSVERSIONINFOEXW) == 284);

/// Fills in the version of the running kernel. False if the size field is not 284 or the version can not be read.
/// Thread-safe.
FN_EXPORT BOOL GetVersionExW(OSVERSIONINFOEXW* information);

/// For tests: answers `GetVersionExW()`.
using ScopedOperatingSystemVersion = ScopedOverride<GetVersionExW>;
extern template class FN_EXPORT ScopedOverride<GetVersionExW>;

} // namespace platform
