#include "platform/com/bstr.h"
#include "platform/com/detail/com_object.h"
#include <cstdlib>
#include <cstring>
#include <glib.h>
#include <limits>
#include <string>

namespace platform {
namespace {

constexpr std::size_t lengthBytes = sizeof(UINT); // The size in bytes stands in front of the text.
constexpr std::size_t mostUnits = (std::numeric_limits<UINT>::max() - lengthBytes) / sizeof(OLECHAR) - 1;

void append(std::u16string& units, char32_t code)
{
    if (code >= 0x10000) {
        units += static_cast<OLECHAR>(0xD800 + ((code - 0x10000) >> 10));
        units += static_cast<OLECHAR>(0xDC00 + ((code - 0x10000) & 0x3FF));
    } else {
        units += static_cast<OLECHAR>(code);
    }
}

std::u16string toUTF16(std::string_view text)
{
    std::u16string units;
    while (!text.empty()) {
        // GLib would take a 0 for the end of the text.
        const auto code = text.front() == '\0'
            ? gunichar(0)
            : g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
        const bool isValid = code < static_cast<gunichar>(-2);
        append(units, isValid ? code : 0xFFFD);
        text.remove_prefix(isValid ? static_cast<std::size_t>(g_utf8_next_char(text.data()) - text.data()) : 1);
    }
    return units;
}

} // namespace

BSTR SysAllocStringLen(const OLECHAR* text, UINT length)
{
    if (detail::isToFail() || length > mostUnits) return nullptr;
    const auto textBytes = static_cast<UINT>(length * sizeof(OLECHAR));
    auto* const memory = static_cast<char*>(std::calloc(1, lengthBytes + textBytes + sizeof(OLECHAR)));
    if (!memory) return nullptr;
    ++detail::objectCount();
    std::memcpy(memory, &textBytes, lengthBytes);
    if (length > 0) std::memcpy(memory + lengthBytes, text, textBytes);
    return reinterpret_cast<BSTR>(memory + lengthBytes);
}

void SysFreeString(BSTR text)
{
    if (!text) return;
    std::free(reinterpret_cast<char*>(text) - lengthBytes);
    --detail::objectCount();
}

UINT SysStringLen(BSTR text)
{
    if (!text) return 0;
    UINT textBytes = 0;
    std::memcpy(&textBytes, reinterpret_cast<const char*>(text) - lengthBytes, lengthBytes);
    return textBytes / sizeof(OLECHAR);
}

BSTR allocText(const fn::String& text)
{
    const auto units = toUTF16(text);
    return units.size() > mostUnits ? nullptr : SysAllocStringLen(units.data(), static_cast<UINT>(units.size()));
}

fn::String textOf(BSTR text) { return text ? fn::String::fromUTF16({ text, SysStringLen(text) }) : fn::String(); }

} // namespace platform
