#include "base/string.h"
#include "base/exceptions.h"
#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <new>
#include <optional>
#include <ostream>

namespace fn {
namespace {

constexpr std::string_view blanks = " \t\r\n\v\f";

// The header in front of a shared text.
struct Header {
    std::atomic<std::uint32_t> references;
    std::uint32_t capacity; // Bytes of text, its terminator not counted.
};

// NOLINTNEXTLINE(readability-non-const-parameter): the header in front of the text is changed through it.
Header& headerOf(char* text) noexcept { return *reinterpret_cast<Header*>(text - sizeof(Header)); }

std::uint32_t checkedSize(std::size_t size)
{
    if (size > std::numeric_limits<std::uint32_t>::max()) throw RangeException("Text is too long");
    return static_cast<std::uint32_t>(size);
}

char* allocateText(std::uint32_t capacity)
{
    void* memory = std::malloc(sizeof(Header) + capacity + std::size_t(1));
    if (!memory) throw std::bad_alloc();
    auto* header = new (memory) Header { 1, capacity };
    return reinterpret_cast<char*>(header + 1);
}

std::string_view trimmed(std::string_view text, bool bothEnds)
{
    if (bothEnds) text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

char lowered(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }
char raised(char c) noexcept { return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c; }

template <typename Number> String numberText(Number value)
{
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return String(std::string_view(text, end));
}

std::optional<std::int64_t> parseInteger(std::string_view text, int base)
{
    text = trimmed(text, true);
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) return std::nullopt;
    }
    std::int64_t value = 0;
    if (base < 2 || base > 36) return std::nullopt;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

void appendUTF8(std::string& text, char32_t c)
{
    const auto continuation = [](char32_t bits) { return static_cast<char>(0x80 | (bits & 0x3F)); };
    if (c < 0x80) {
        text += static_cast<char>(c);
    } else if (c < 0x800) {
        text += static_cast<char>(0xC0 | (c >> 6));
        text += continuation(c);
    } else if (c < 0x10000) {
        text += static_cast<char>(0xE0 | (c >> 12));
        text += continuation(c >> 6);
        text += continuation(c);
    } else {
        text += static_cast<char>(0xF0 | (c >> 18));
        text += continuation(c >> 12);
        text += continuation(c >> 6);
        text += continuation(c);
    }
}

} // namespace

void String::setLongText(std::string_view text) { std::memcpy(makeRoom(text.size()), text.data(), text.size()); }

char* String::makeRoom(std::size_t size)
{
    if (size <= InlineCapacity) {
        setInlineSize(size);
        return _storage;
    }
    const auto length = checkedSize(size);
    char* text = allocateText(length);
    text[length] = '\0';
    setShared({ text, length });
    return text;
}

void String::setShared(Shared shared) noexcept
{
    std::memset(_storage, 0, sizeof _storage);
    std::memcpy(_storage, &shared.text, sizeof shared.text);
    std::memcpy(_storage + sizeof shared.text, &shared.size, sizeof shared.size);
    _storage[InlineCapacity] = static_cast<char>(SharedTag);
}

void String::retain() noexcept { headerOf(shared().text).references.fetch_add(1, std::memory_order_relaxed); }

void String::release() noexcept
{
    auto& header = headerOf(shared().text);
    // The only holder needs no locked instruction: nobody else could add a reference.
    if (header.references.load(std::memory_order_acquire) == 1
        || header.references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        std::free(&header);
    }
}

String& String::operator+=(std::string_view text)
{
    // `text` may lie within this string: every branch writes behind it, or copies it before the old buffer is released.
    if (text.empty()) return *this;
    const auto oldSize = size();
    const auto newSize = checkedSize(oldSize + text.size());
    if (newSize <= InlineCapacity) {
        std::memcpy(_storage + oldSize, text.data(), text.size());
        setInlineSize(newSize);
        return *this;
    }
    if (!isInline()) {
        char* own = shared().text;
        const auto& header = headerOf(own);
        if (header.references.load(std::memory_order_acquire) == 1 && header.capacity >= newSize) {
            std::memcpy(own + oldSize, text.data(), text.size());
            own[newSize] = '\0';
            setShared({ own, newSize });
            return *this;
        }
    }
    // Growing by half bounds how often a byte is copied when a text is appended piece by piece.
    const auto room = std::max<std::uint64_t>(newSize, std::uint64_t(oldSize) + oldSize / 2);
    char* grown = allocateText(static_cast<std::uint32_t>(std::min<std::uint64_t>(room, UINT32_MAX)));
    std::memcpy(grown, data(), oldSize);
    std::memcpy(grown + oldSize, text.data(), text.size());
    grown[newSize] = '\0';
    if (!isInline()) release();
    setShared({ grown, newSize });
    return *this;
}

String String::concatenate(std::string_view a, std::string_view b)
{
    return build(
        a.size() + b.size(), [&](char* text) { std::copy(b.begin(), b.end(), std::copy(a.begin(), a.end(), text)); });
}

std::ostream& operator<<(std::ostream& stream, const String& text) { return stream << text.view(); }

String String::substring(std::size_t offset, std::size_t length) const
{
    if (offset >= size()) return {};
    if (offset == 0 && length >= size()) return *this;
    return view().substr(offset, length);
}

String String::toLowerCase() const
{
    return build(size(), [text = view()](char* out) { std::transform(text.begin(), text.end(), out, lowered); });
}

String String::toUpperCase() const
{
    return build(size(), [text = view()](char* out) { std::transform(text.begin(), text.end(), out, raised); });
}

String String::trim(bool bothEnds) const
{
    const auto rest = trimmed(view(), bothEnds);
    return rest.size() == size() ? *this : String(rest);
}

std::vector<String> String::split(char separator, int flags, std::size_t limit) const
{
    std::vector<String> parts;
    if (empty()) return parts;
    auto rest = view();
    while (true) {
        const auto end = parts.size() + 1 == limit ? std::string_view::npos : rest.find(separator);
        auto part = rest.substr(0, end);
        if (flags & TrimParts) part = trimmed(part, true);
        if (!part.empty() || (flags & KeepEmptyParts)) parts.emplace_back(part);
        if (end == std::string_view::npos) return parts;
        rest.remove_prefix(end + 1);
    }
}

int String::toInt(int defaultValue, int base, bool* ok) const
{
    const auto value = parseInteger(view(), base);
    const bool fits = value && std::in_range<int>(*value);
    if (ok) *ok = fits;
    return fits ? static_cast<int>(*value) : defaultValue;
}

std::int64_t String::toInt64(std::int64_t defaultValue, int base, bool* ok) const
{
    const auto value = parseInteger(view(), base);
    if (ok) *ok = value.has_value();
    return value.value_or(defaultValue);
}

bool String::toBool() const
{
    const auto text = toLowerCase();
    return text == "true" || text == "yes" || text == "on" || text == "1";
}

String String::number(std::int64_t value) { return numberText(value); }
String String::number(std::uint64_t value) { return numberText(value); }
String String::number(double value) { return numberText(value); }

String String::numberHex(std::uint64_t value, int width, char fill)
{
    char digits[16];
    const auto count = static_cast<std::size_t>(std::to_chars(digits, digits + sizeof digits, value, 16).ptr - digits);
    const auto filled =
        width > 0 && static_cast<std::size_t>(width) > count ? static_cast<std::size_t>(width) - count : 0;
    return build(filled + count, [&](char* text) { std::copy_n(digits, count, std::fill_n(text, filled, fill)); });
}

String String::fromUTF16(std::u16string_view text)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if (c >= 0xD800 && c < 0xE000) {
            const bool paired = c < 0xDC00 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00;
            c = paired ? 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00u) : 0xFFFD;
        }
        appendUTF8(result, c);
    }
    return result;
}

} // namespace fn
