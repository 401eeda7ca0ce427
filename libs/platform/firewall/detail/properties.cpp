#include "platform/firewall/detail/properties.h"
#include <limits>
#include <string_view>

namespace platform::detail {

HRESULT putText(Origin origin, BSTR text, fn::String& property)
{
    if (origin == Origin::List) return E_ACCESSDENIED;
    const auto units = text ? std::u16string_view(text, SysStringLen(text)) : std::u16string_view();
    if (units.find(u'\0') != units.npos) return E_INVALIDARG;
    return guarded([&] {
        property = fn::String::fromUTF16(units);
        return S_OK;
    });
}

HRESULT getText(const fn::String& property, BSTR* text)
{
    if (!text) return E_POINTER;
    *text = nullptr;
    if (property.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) return E_OUTOFMEMORY;
    const auto bytes = static_cast<int>(property.size());
    const int units = MultiByteToWideChar(CP_UTF8, 0, property.data(), bytes, nullptr, 0);
    *text = SysAllocStringLen(nullptr, static_cast<UINT>(units));
    if (!*text) return E_OUTOFMEMORY;
    if (units > 0) MultiByteToWideChar(CP_UTF8, 0, property.data(), bytes, *text, units);
    return S_OK;
}

} // namespace platform::detail
