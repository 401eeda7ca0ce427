#include "core/firewall_configurator/detail/bstr.h"
#include <limits>
#include <string>

namespace core::detail {

Bstr::Bstr(const fn::String& text)
{
    using namespace platform;
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) return;
    const auto bytes = static_cast<int>(text.size());
    const int units = MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, nullptr, 0);
    _text = SysAllocStringLen(nullptr, static_cast<UINT>(units));
    if (_text && units > 0) MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, _text, units);
}

fn::String Bstr::text() const
{
    return _text ? fn::String::fromUTF16({ _text, platform::SysStringLen(_text) }) : fn::String();
}

fn::String throughUtf16(const fn::String& text)
{
    using namespace platform;
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        return text; // Nor is it ever recorded.
    const auto bytes = static_cast<int>(text.size());
    std::u16string units(text.size(), u'\0'); // A character never has more units than bytes.
    const int count = MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, units.data(), bytes);
    return fn::String::fromUTF16({ units.data(), static_cast<std::size_t>(count) });
}

} // namespace core::detail
