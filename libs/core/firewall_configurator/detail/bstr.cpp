#include "core/firewall_configurator/detail/bstr.h"
#include <limits>

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

} // namespace core::detail
