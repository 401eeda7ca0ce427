#pragma once
#include "platform/com/detail/com_object.h"
#include "platform/com/variant.h"

/// What the setters and getters of the firewall's objects have in common.
namespace platform::detail {

/// `E_INVALIDARG` for a text with a 0 in it, which the file cannot keep.
inline HRESULT put(BSTR text, fn::String& property)
{
    return guarded([&] {
        auto value = textOf(text);
        if (value.view().find('\0') != std::string_view::npos) return E_INVALIDARG;
        property = std::move(value);
        return S_OK;
    });
}

inline HRESULT get(const fn::String& property, BSTR* text)
{
    return guarded([&] {
        *text = allocText(property);
        return *text ? S_OK : E_OUTOFMEMORY;
    });
}

/// A number, one of an enumeration, or a flag.
template <typename T, typename Property> HRESULT put(T value, Property& property)
{
    return guarded([&] {
        property = static_cast<Property>(value);
        return S_OK;
    });
}

template <typename Property, typename T> HRESULT get(Property property, T* value)
{
    return guarded([&] {
        if constexpr (std::is_same_v<Property, bool>)
            *value = property ? VARIANT_TRUE : VARIANT_FALSE;
        else
            *value = static_cast<T>(property);
        return S_OK;
    });
}

} // namespace platform::detail
