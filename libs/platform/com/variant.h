#pragma once
#include "platform/com/bstr.h"
#include "platform/com/unknown.h"

namespace platform {

using VARTYPE = std::uint16_t;
using VARIANT_BOOL = std::int16_t;

inline constexpr VARIANT_BOOL VARIANT_TRUE = -1;
inline constexpr VARIANT_BOOL VARIANT_FALSE = 0;

inline constexpr VARTYPE VT_EMPTY = 0;
inline constexpr VARTYPE VT_I4 = 3;
inline constexpr VARTYPE VT_BSTR = 8;
inline constexpr VARTYPE VT_DISPATCH = 9;
inline constexpr VARTYPE VT_BOOL = 11;
inline constexpr VARTYPE VT_UNKNOWN = 13;

/// One value of the kind that `vt` says. It owns its text or its reference until `VariantClear()`.
struct VARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        LONG lVal;
        VARIANT_BOOL boolVal;
        BSTR bstrVal;
        IUnknown* punkVal;
        IDispatch* pdispVal;
    };
};

FN_EXPORT void VariantInit(VARIANT* variant); ///< Makes it `VT_EMPTY` without looking at what it was.

/// Frees or releases what it holds and makes it empty. `DISP_E_BADVARTYPE` for a kind that is not listed above.
FN_EXPORT HRESULT VariantClear(VARIANT* variant);

/// Puts `source`, as a value of kind `type`, into `target`, whose content is cleared first; both may be the same. On failure
/// both are as before. Offered here: objects as `VT_UNKNOWN` or `VT_DISPATCH`; else `DISP_E_TYPEMISMATCH`.
FN_EXPORT HRESULT VariantChangeType(VARIANT* target, const VARIANT* source, WORD flags, VARTYPE type);

inline constexpr IID IID_IEnumVARIANT { 0x00020404, 0x0000, 0x0000,
    { 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46 } };

/// Goes once through a list as it was when the enumeration began.
class FN_EXPORT IEnumVARIANT : public IUnknown {
public:
    /// Fills up to `count` variants, which the caller clears, and says in `fetched` how many (null is allowed for one).
    /// `S_FALSE`: there were fewer.
    virtual HRESULT Next(ULONG count, VARIANT* variants, ULONG* fetched) = 0;

protected:
    ~IEnumVARIANT() = default;
};

} // namespace platform
