#pragma once
#include "foundation/export.h"
#include "platform/windows_types.h"

namespace platform {

using UINT = std::uint32_t;
using OLECHAR = char16_t;

/// UTF-16 text that knows its length and ends with a 0, made and freed by the calls below. Null reads as "".
using BSTR = OLECHAR*;

/// The copy of a text that ends with a 0; null for null, or if there is no memory. Thread-safe, like those below.
FN_EXPORT BSTR SysAllocString(const OLECHAR* text);

/// Room for `length` units and a 0 behind them, filled from `text` unless that is null. Null if there is no memory.
FN_EXPORT BSTR SysAllocStringLen(const OLECHAR* text, UINT length);

FN_EXPORT void SysFreeString(BSTR text); ///< Null is allowed.
FN_EXPORT UINT SysStringLen(BSTR text); ///< In units; 0 for null.

inline constexpr UINT CP_UTF8 = 65001;

/// Converts `bytes` bytes of UTF-8 to UTF-16 and gives the number of units; with `outputLength` 0 it only counts them.
/// With -1 for `bytes` the text ends with a 0, which is converted, too. What is no UTF-8 becomes U+FFFD, byte by byte.
/// 0 where nothing is to be converted, the output is too small, or for any other code page or flags. Thread-safe.
FN_EXPORT int MultiByteToWideChar(
    UINT codePage, DWORD flags, const char* text, int bytes, OLECHAR* output, int outputLength);

} // namespace platform
