#include "platform/com/variant.h"
#include "platform/com/detail/com_object.h"

namespace platform {
namespace {

/// The object in a variant, or null.
IUnknown* objectOf(const VARIANT& variant)
{
    if (variant.vt == VT_UNKNOWN) return variant.punkVal;
    return variant.vt == VT_DISPATCH ? variant.pdispVal : nullptr;
}

} // namespace

void VariantInit(VARIANT* variant) { *variant = VARIANT {}; }

HRESULT VariantClear(VARIANT* variant)
{
    if (auto* const object = objectOf(*variant)) object->Release();
    VariantInit(variant);
    return S_OK;
}

HRESULT VariantChangeType(VARIANT* target, const VARIANT* source, WORD, VARTYPE type)
{
    if (detail::isToFail()) return E_FAIL;
    auto* const object = objectOf(*source);
    void* dispatch = nullptr;
    if (!object || type != VT_DISPATCH || FAILED(object->QueryInterface(IID_IDispatch, &dispatch))) {
        return DISP_E_TYPEMISMATCH;
    }
    VariantClear(target);
    target->vt = VT_DISPATCH;
    target->pdispVal = static_cast<IDispatch*>(dispatch);
    return S_OK;
}

} // namespace platform
