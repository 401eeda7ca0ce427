#pragma once
#include "platform/com/bstr.h"
#include "platform/com/result_codes.h"
#include "platform/com/unknown.h"
#include "platform/scoped_override.h"

namespace platform {

inline constexpr DWORD COINIT_MULTITHREADED = 0x0;
inline constexpr DWORD COINIT_APARTMENTTHREADED = 0x2;
inline constexpr DWORD CLSCTX_INPROC_SERVER = 0x1;
inline constexpr DWORD CLSCTX_LOCAL_SERVER = 0x4;

/// Options for making the object that a moniker names.
struct BIND_OPTS {
    DWORD cbStruct; ///< Size of the whole structure; `bindOptions3Bytes` for a BIND_OPTS3.
    DWORD grfFlags;
    DWORD grfMode;
    DWORD dwTickCountDeadline;
};

struct BIND_OPTS3 : BIND_OPTS {
    DWORD dwTrackFlags;
    DWORD dwClassContext;
    DWORD locale;
    void* pServerInfo;
    void* hwnd; ///< The window to which the question to the user belongs.
};

/// The size that a BIND_OPTS3 states, with pointers of 32 bits.
inline constexpr DWORD bindOptions3Bytes = 36;

/// Makes COM usable on this thread. `S_OK`, or `S_FALSE` if COM was usable in the same mode already: both need a `CoUninitialize()`.
/// `RPC_E_CHANGED_MODE` if COM was usable in the other mode, which stays. `reserved` is null.
FN_EXPORT HRESULT CoInitializeEx(void* reserved, DWORD mode);
FN_EXPORT void CoUninitialize();

/// Makes an object. The classes of this layer live in this process (`CLSCTX_INPROC_SERVER`) and are not aggregated.
/// `REGDB_E_CLASSNOTREG` for an unknown class, `CO_E_NOTINITIALIZED` on a thread without COM.
FN_EXPORT HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** object);

/// Makes the object that a moniker names. Offered here: "Elevation:Administrator!new:" and a class, with a BIND_OPTS3
/// whose context is `CLSCTX_LOCAL_SERVER`. The user is asked (`ScopedElevationPrompt`);
/// `HRESULT_FROM_WIN32(ERROR_CANCELLED)` if the user says no. `MK_E_SYNTAX` for other monikers.
FN_EXPORT HRESULT CoGetObject(const OLECHAR* moniker, BIND_OPTS* options, REFIID iid, void** object);

/// Writes "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" and a 0. Returns 39, or 0 if `length` units do not suffice.
FN_EXPORT int StringFromGUID2(REFGUID guid, OLECHAR* text, int length);

/// `S_OK` if no object and no BSTR of this layer exists any more, else `S_FALSE`. Thread-safe.
FN_EXPORT HRESULT DllCanUnloadNow();

/// For tests: a function that says at the beginning of each call of COM and of its objects whether that call is to fail. Its
/// exceptions come out of the calls of COM, but not out of the calls of objects.
using ComFailure = std::function<bool()>;
using ScopedComFailure = ScopedOverride<CoCreateInstance, ComFailure>;
extern template class FN_EXPORT ScopedOverride<CoCreateInstance, ComFailure>;

} // namespace platform
