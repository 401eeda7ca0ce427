#pragma once
#include "foundation/string.h"
#include "platform/com/detail/com_object.h"
#include "platform/com/variant.h"

/// What the setters and getters of the firewall's objects have in common.
namespace platform::detail {

/// Where an object comes from. One from the list shows what is recorded, and can not be changed.
enum class Origin { New, List };

/// Converts `text` into `property`. `E_INVALIDARG` for a 0 within, which no file keeps.
HRESULT putText(Origin origin, BSTR text, fn::String& property);

/// Gives a new text to the caller.
HRESULT getText(const fn::String& property, BSTR* text);

inline HRESULT getFlag(bool property, VARIANT_BOOL* flag)
{
    if (!flag) return E_POINTER;
    *flag = property ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
}

inline HRESULT putFlag(Origin origin, VARIANT_BOOL flag, bool& property)
{
    if (origin == Origin::List) return E_ACCESSDENIED;
    property = flag != VARIANT_FALSE;
    return S_OK;
}

template <typename T> HRESULT getNumber(T property, T* number)
{
    if (!number) return E_POINTER;
    *number = property;
    return S_OK;
}

template <typename T> HRESULT putNumber(Origin origin, bool isAllowed, T number, T& property)
{
    if (origin == Origin::List) return E_ACCESSDENIED;
    if (!isAllowed) return E_INVALIDARG;
    property = number;
    return S_OK;
}

/// Reads one text of an object that may be somebody else's implementation.
template <typename Object> HRESULT readText(Object& object, HRESULT (Object::*getter)(BSTR*), fn::String& text)
{
    BSTR value = nullptr;
    HRESULT result = (object.*getter)(&value);
    if (SUCCEEDED(result)) result = putText(Origin::New, value, text);
    SysFreeString(value);
    return result;
}

} // namespace platform::detail
