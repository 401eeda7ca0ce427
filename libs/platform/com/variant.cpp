#include "platform/com/variant.h"
#include "platform/com/com_backend.h"
#include "platform/com/result_codes.h"

namespace platform {
namespace {

/// The object in a variant, or null.
IUnknown* objectOf(const VARIANT& variant)
{
    if (variant.vt == VT_UNKNOWN) return variant.punkVal;
    return variant.vt == VT_DISPATCH ? variant.pdispVal : nullptr;
}

} // namespace

void VariantInit(VARIANT* variant)
{
    if (variant) *variant = VARIANT {};
}

HRESULT VariantClear(VARIANT* variant)
{
    if (!variant) return E_INVALIDARG;
    switch (variant->vt) {
    case VT_EMPTY:
    case VT_I4:
    case VT_BOOL: break;
    case VT_BSTR: SysFreeString(variant->bstrVal); break;
    case VT_UNKNOWN:
    case VT_DISPATCH:
        if (auto* const object = objectOf(*variant)) object->Release();
        break;
    default: return DISP_E_BADVARTYPE;
    }
    VariantInit(variant);
    return S_OK;
}

HRESULT ComBackend::variantChangeType(VARIANT* target, const VARIANT* source, WORD, VARTYPE type)
{
    if (!target || !source) return E_INVALIDARG;
    const bool isDispatch = type == VT_DISPATCH;
    auto* const object = objectOf(*source);
    if (!object || (type != VT_UNKNOWN && !isDispatch)) return DISP_E_TYPEMISMATCH;

    void* converted = nullptr;
    if (FAILED(object->QueryInterface(isDispatch ? IID_IDispatch : IID_IUnknown, &converted))) {
        return DISP_E_TYPEMISMATCH;
    }
    VARIANT result {};
    result.vt = type;
    if (isDispatch)
        result.pdispVal = static_cast<IDispatch*>(converted);
    else
        result.punkVal = static_cast<IUnknown*>(converted);
    const HRESULT cleared = VariantClear(target);
    if (FAILED(cleared)) {
        VariantClear(&result);
        return cleared;
    }
    *target = result;
    return S_OK;
}

} // namespace platform
