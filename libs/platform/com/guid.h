#pragma once
#include "platform/windows_types.h"

namespace platform {

/// Names a class (CLSID) or an interface (IID).
struct GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];

    bool operator==(const GUID&) const = default;
};

using CLSID = GUID;
using IID = GUID;
using REFGUID = const GUID&;
using REFCLSID = const CLSID&;
using REFIID = const IID&;

} // namespace platform
