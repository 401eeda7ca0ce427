#include "base/utf8.h"
#include <glib.h>

namespace fn {

bool isUTF8(std::string_view text) noexcept
{
    const char* end = nullptr;
    while (!g_utf8_validate_len(text.data(), text.size(), &end)) {
        if (*end != '\0') return false; // GLib also stops at a NUL, which UTF-8 may hold.
        text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
    }
    return true;
}

std::string_view cutText(std::string_view text, std::size_t mostBytes) noexcept
{
    if (text.size() <= mostBytes) return text;
    const auto isContinuation = [&](std::size_t at) { return (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80; };
    auto end = mostBytes;
    while (end > 0 && mostBytes - end < 3 && isContinuation(end)) --end;
    return text.substr(0, end);
}

} // namespace fn
