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

/// How an object that a moniker names is to be bound.
struct BIND_OPTS {
    DWORD cbStruct; ///< Size of the whole structure, which may be a longer one: `bindOptions3Bytes`.
    DWORD grfFlags;
    DWORD grfMode;
    DWORD dwTickCountDeadline;
};

struct BIND_OPTS3 : BIND_OPTS {
    DWORD dwTrackFlags;
    DWORD dwClassContext;
    DWORD locale;
    void* pServerInfo;
    void* hwnd; ///< The window that the question belongs to.
};

/// The size that a BIND_OPTS3 states, with pointers of 32 bits.
inline constexpr DWORD bindOptions3Bytes = 36;

/// Makes COM usable on this thread. `S_OK`; `S_FALSE` if it was already, in the same mode: both want a `CoUninitialize()`.
/// `RPC_E_CHANGED_MODE` if it was in the other mode, which stays. `reserved` is null.
FN_EXPORT HRESULT CoInitializeEx(void* reserved, DWORD mode);
FN_EXPORT void CoUninitialize();

/// Makes an object. The classes of this layer live in this process (`CLSCTX_INPROC_SERVER`) and are not aggregated.
/// `REGDB_E_CLASSNOTREG` for an unknown class, `CO_E_NOTINITIALIZED` on a thread without COM.
FN_EXPORT HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** object);

/// Makes the object that a moniker names. Offered here: "Elevation:Administrator!new:" and a class, with a BIND_OPTS3
/// whose context is `CLSCTX_LOCAL_SERVER`. The user is asked (`ScopedElevationPrompt`) and
/// `HRESULT_FROM_WIN32(ERROR_CANCELLED)` is his no. `MK_E_SYNTAX` for other monikers.
FN_EXPORT HRESULT CoGetObject(const OLECHAR* moniker, BIND_OPTS* options, REFIID iid, void** object);

/// Writes "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" and a 0. Gives 39, or 0 if `length` units do not suffice.
FN_EXPORT int StringFromGUID2(REFGUID guid, OLECHAR* text, int length);

/// `S_OK` if no object and no BSTR of this layer exists any more, else `S_FALSE`. Thread-safe.
FN_EXPORT HRESULT DllCanUnloadNow();

/// For tests: asked at the beginning of each call of COM and of its objects whether that is to fail. What it throws comes out
/// of the call, unless that is an object's.
using ComFailure = std::function<bool()>;
using ScopedComFailure = ScopedOverride<CoCreateInstance, ComFailure>;
extern template class FN_EXPORT ScopedOverride<CoCreateInstance, ComFailure>;

} // namespace platform
