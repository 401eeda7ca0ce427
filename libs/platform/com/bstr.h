#pragma once
#include "base/export.h"
#include "base/string.h"
#include "platform/windows_types.h"

namespace platform {

using UINT = std::uint32_t;
using OLECHAR = char16_t;

/// UTF-16 text that knows its length and ends with a 0, made and freed by the calls below. Null reads as "".
using BSTR = OLECHAR*;

/// The copy of `length` units, with a 0 behind them. Null if there is no memory. Thread-safe, like those below.
FN_EXPORT BSTR SysAllocStringLen(const OLECHAR* text, UINT length);

FN_EXPORT void SysFreeString(BSTR text); ///< Null is allowed.
FN_EXPORT UINT SysStringLen(BSTR text); ///< In units; 0 for null.

/// The copy of a text in UTF-8; each byte that is no UTF-8 becomes U+FFFD. Null if there is no memory.
FN_EXPORT BSTR allocText(const fn::String& text);

FN_EXPORT fn::String textOf(BSTR text); ///< In UTF-8; an unpaired surrogate becomes U+FFFD.

} // namespace platform
