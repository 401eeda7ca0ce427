#pragma once
#include "foundation/export.h"
#include "platform/windows_types.h"
#include <functional>

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

/// For tests: `GetVersionExW()` is answered by `query` while this lives. Nested ones end in reverse order.
class FN_EXPORT ScopedOperatingSystemVersion {
public:
    using Query = std::function<BOOL(OSVERSIONINFOEXW&)>;

    explicit ScopedOperatingSystemVersion(Query query);
    ScopedOperatingSystemVersion(const ScopedOperatingSystemVersion&) = delete;
    ScopedOperatingSystemVersion& operator=(const ScopedOperatingSystemVersion&) = delete;
    ~ScopedOperatingSystemVersion();

private:
    Query _previous;
};

} // namespace platform
