#pragma once
#include "platform/com/bstr.h"
#include "platform/com/unknown.h"

namespace platform {

using VARTYPE = std::uint16_t;
using VARIANT_BOOL = std::int16_t;

inline constexpr VARIANT_BOOL VARIANT_TRUE = -1;
inline constexpr VARIANT_BOOL VARIANT_FALSE = 0;

inline constexpr VARTYPE VT_EMPTY = 0;
inline constexpr VARTYPE VT_DISPATCH = 9;
inline constexpr VARTYPE VT_UNKNOWN = 13;

/// One value of the kind `vt`. In this layer the value is an object; the variant owns a reference to it until `VariantClear()`.
struct VARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        IUnknown* punkVal;
        IDispatch* pdispVal;
    };
};

FN_EXPORT void VariantInit(VARIANT* variant); ///< Makes the variant `VT_EMPTY` without reading it.

FN_EXPORT HRESULT VariantClear(VARIANT* variant); ///< Releases the object and makes the variant empty.

/// Puts the object of `source` as `type` into `target`, whose content is released first; both may be the same. Offered here is
/// `VT_DISPATCH`. `DISP_E_TYPEMISMATCH`, which changes neither, if `source` holds no object, or none of that kind.
FN_EXPORT HRESULT VariantChangeType(VARIANT* target, const VARIANT* source, WORD flags, VARTYPE type);

inline constexpr IID IID_IEnumVARIANT { 0x00020404, 0x0000, 0x0000,
    { 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46 } };

/// Goes once through the list as the list was when the enumeration began.
class FN_EXPORT IEnumVARIANT : public IUnknown {
public:
    /// Fills one variant, which the caller clears, and sets `fetched` (null is allowed) to the number of variants filled. `S_FALSE`:
    /// the list has ended. Offered here is a `count` of 1.
    virtual HRESULT Next(ULONG count, VARIANT* variants, ULONG* fetched) = 0;

protected:
    ~IEnumVARIANT() = default;
};

} // namespace platform
