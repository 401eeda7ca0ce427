#include "platform/com/bstr.h"
#include "platform/com/com_backend.h"
#include <cstdlib>
#include <cstring>
#include <glib.h>
#include <limits>

namespace platform {
namespace {

constexpr std::size_t lengthBytes = sizeof(UINT); // In front of the text: its size in bytes.

/// The first character of UTF-8 text and its size in bytes.
struct Character {
    char32_t code;
    int bytes;
};

Character firstCharacter(const char* text, int bytes)
{
    const auto first = static_cast<unsigned char>(*text);
    if (first < 0x80) return { first, 1 };
    const gunichar code = g_utf8_get_char_validated(text, bytes);
    if (code >= static_cast<gunichar>(-2)) return { 0xFFFD, 1 };
    return { code, g_utf8_skip[first] };
}

/// Writes a character at `position` if it has room there, and gives the position behind it.
std::int64_t append(char32_t code, OLECHAR* output, std::int64_t position, std::int64_t length)
{
    const std::int64_t end = position + (code >= 0x10000 ? 2 : 1);
    if (end > length) return end;
    if (code >= 0x10000) {
        output[position] = static_cast<OLECHAR>(0xD800 + ((code - 0x10000) >> 10));
        output[position + 1] = static_cast<OLECHAR>(0xDC00 + ((code - 0x10000) & 0x3FF));
    } else {
        output[position] = static_cast<OLECHAR>(code);
    }
    return end;
}

} // namespace

BSTR ComBackend::sysAllocStringLen(const OLECHAR* text, UINT length)
{
    if (length > (std::numeric_limits<UINT>::max() - lengthBytes) / sizeof(OLECHAR) - 1) return nullptr;
    const std::size_t textBytes = length * sizeof(OLECHAR);
    auto* const memory = static_cast<char*>(std::malloc(lengthBytes + textBytes + sizeof(OLECHAR)));
    if (!memory) return nullptr;
    const auto stated = static_cast<UINT>(textBytes);
    std::memcpy(memory, &stated, lengthBytes);
    auto* const result = reinterpret_cast<BSTR>(memory + lengthBytes);
    if (text)
        std::memcpy(result, text, textBytes);
    else
        std::memset(result, 0, textBytes);
    result[length] = 0;
    return result;
}

void ComBackend::sysFreeString(BSTR text)
{
    if (text) std::free(reinterpret_cast<char*>(text) - lengthBytes);
}

UINT SysStringLen(BSTR text)
{
    if (!text) return 0;
    UINT textBytes = 0;
    std::memcpy(&textBytes, reinterpret_cast<const char*>(text) - lengthBytes, lengthBytes);
    return textBytes / sizeof(OLECHAR);
}

int MultiByteToWideChar(UINT codePage, DWORD flags, const char* text, int bytes, OLECHAR* output, int outputLength)
{
    if (codePage != CP_UTF8 || flags != 0 || !text || outputLength < 0 || (outputLength > 0 && !output)) return 0;
    constexpr auto most = std::numeric_limits<int>::max();
    const std::size_t size = bytes == -1 ? std::strlen(text) + 1 : static_cast<std::size_t>(bytes);
    if (bytes < -1 || size > static_cast<std::size_t>(most)) return 0;
    const char* const end = text + size;
    std::int64_t position = 0;
    while (text < end) {
        const auto character = firstCharacter(text, static_cast<int>(end - text));
        position = append(character.code, output, position, outputLength);
        text += character.bytes;
    }
    return outputLength > 0 && position > outputLength ? 0 : static_cast<int>(position);
}

} // namespace platform
