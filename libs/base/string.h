#pragma once
#include "base/export.h"
#include "base/word_pair.h"
#include <bit>
#include <compare>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <fmt/format.h>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fn {

class String;

namespace internal {
/// Literals and the standard library's classes of text.
template <typename T>
concept OtherText = std::convertible_to<const T&, std::string_view> && !std::derived_from<T, String>;
} // namespace internal

/// UTF-8 text of up to 4 GiB - 1 (longer: `fn::RangeException`), 16 bytes large. Texts of up to 15 bytes are stored in
/// place, longer ones in a shared buffer: copying never copies long text. Bytes that are not UTF-8 are kept as they
/// are. Ordering is by unsigned bytes. Distinct strings may be used on distinct threads even where they share a buffer.
class FN_EXPORT String {
public:
    String() noexcept { setWords(inlineWords(nullptr, 0)); }
    /// Copies the bytes. Null reads as "".
    String(const char* text) : String(text ? std::string_view(text) : std::string_view()) { }
    /// Copies the bytes.
    String(std::string_view text)
    {
        if (text.size() <= InlineCapacity) [[likely]]
            setWords(inlineWords(text.data(), text.size()));
        else
            setLongText(text);
    }
    /// Copies the bytes.
    String(const std::string& text) : String(std::string_view(text)) { }
    String(const String& other) noexcept
    {
        std::memcpy(_storage, other._storage, sizeof _storage);
        if (!isInline()) [[unlikely]]
            retain();
    }
    String(String&& other) noexcept
    {
        std::memcpy(_storage, other._storage, sizeof _storage);
        other.makeEmpty();
    }
    String& operator=(const String& other) noexcept { return *this = String(other); }
    String& operator=(String&& other) noexcept
    {
        String moved(std::move(other));
        std::swap(_storage, moved._storage);
        return *this;
    }
    ~String()
    {
        if (!isInline()) [[unlikely]]
            release();
    }

    /// A text of `size` bytes. `fill(char*)` must write all of them.
    template <typename Fill> static String build(std::size_t size, Fill&& fill)
    {
        String result;
        fill(result.makeRoom(size));
        return result;
    }

    /// The bytes, of which the last one is followed by a zero. Valid until the string changes or goes.
    const char* data() const noexcept { return isInline() ? _storage : shared().text; }
    const char* c_str() const noexcept { return data(); } ///< Zero-terminated; valid until the string changes or goes.
    /// Bytes, not characters.
    std::size_t size() const noexcept { return isInline() ? InlineCapacity - tag() : shared().size; }
    bool empty() const noexcept { return size() == 0; } ///< Whether there is no byte.
    /// Borrowed: valid until the string changes or goes.
    std::string_view view() const noexcept { return { data(), size() }; }
    operator std::string_view() const noexcept { return view(); }
    std::string toStdString() const { return std::string(view()); } ///< A copy.

    String& operator+=(std::string_view text);
    friend String operator+(const String& a, const String& b) { return concatenate(a, b); }
    template <internal::OtherText T> friend String operator+(const String& a, const T& b) { return concatenate(a, b); }
    template <internal::OtherText T> friend String operator+(const T& a, const String& b) { return concatenate(a, b); }

    friend bool operator==(const String& a, const String& b) noexcept
    {
        // The unused bytes of a short text are zero: equal short texts have equal words.
        const auto x = a.words(), y = b.words();
        if (x.first == y.first && x.second == y.second) return true;
        return !a.isInline() && !b.isInline() && a.view() == b.view();
    }
    template <internal::OtherText T> friend bool operator==(const String& a, const T& b) noexcept
    {
        return a.view() == std::string_view(b);
    }
    friend std::strong_ordering operator<=>(const String& a, const String& b) noexcept { return compare(a, b) <=> 0; }
    template <internal::OtherText T> friend std::strong_ordering operator<=>(const String& a, const T& b) noexcept
    {
        return a.view() <=> std::string_view(b);
    }

    /// Negative if `a` comes first, positive if `b` does, 0 if they are equal.
    static int compare(const String& a, const String& b) noexcept
    {
        if (!a.isInline() || !b.isInline()) [[unlikely]]
            return a.view().compare(b.view());
        const auto x = a.bigEndianWords(), y = b.bigEndianWords();
        if (x.first != y.first) return x.first < y.first ? -1 : 1;
        const auto inLast = [](std::uint64_t word) { return word >> 8; }; // The text without the tag.
        if (inLast(x.second) != inLast(y.second)) return inLast(x.second) < inLast(y.second) ? -1 : 1;
        return static_cast<int>(a.size()) - static_cast<int>(b.size()); // They differ at most in zeros at the end.
    }

    friend FN_EXPORT std::ostream& operator<<(std::ostream& stream, const String& text);

    /// Compares bytes: case matters.
    bool startsWith(std::string_view prefix) const noexcept { return view().starts_with(prefix); }
    /// Compares bytes: case matters.
    bool endsWith(std::string_view suffix) const noexcept { return view().ends_with(suffix); }
    /// Whether `part` stands somewhere in it, byte for byte.
    bool contains(std::string_view part) const noexcept { return view().find(part) != std::string_view::npos; }

    /// The `length` bytes from `offset` on, or as many as there are.
    String substring(std::size_t offset, std::size_t length = std::string_view::npos) const;
    String toLowerCase() const; ///< ASCII letters only.
    String toUpperCase() const; ///< ASCII letters only.

    /// The text without ASCII blanks (space, tab, CR, LF, VT, FF) at both ends, or without those at its end alone.
    String trim(bool bothEnds = true) const;

    static constexpr int KeepEmptyParts = 1; ///< A flag of `split()`: parts without a byte count, too.
    static constexpr int TrimParts = 2; ///< A flag of `split()`: each part without blanks at both ends.

    /// The parts between the separators. `limit` (0: no limit) bounds the number of parts; the last part is then the whole
    /// rest. An empty text gives no part.
    std::vector<String> split(char separator, int flags = 0, std::size_t limit = 0) const;

    /// The text as an integer; blanks around it and one sign are allowed. Anything else, or an overflow, gives
    /// `defaultValue` and `*ok` false.
    int toInt(int defaultValue = 0, int base = 10, bool* ok = nullptr) const;
    /// As `toInt()`, for 64 bits.
    std::int64_t toInt64(std::int64_t defaultValue = 0, int base = 10, bool* ok = nullptr) const;

    bool toBool() const; ///< "true", "yes", "on" and "1" in any case are true, everything else is false.

    /// In decimal digits.
    static String number(std::int64_t value);
    static String number(std::uint64_t value);
    static String number(int value) { return number(static_cast<std::int64_t>(value)); }
    static String number(unsigned value) { return number(static_cast<std::uint64_t>(value)); }
    static String number(double value); ///< The shortest text that reads back as the same value.

    /// Lower-case hexadecimal digits, filled with `fill` in front up to `width` characters.
    static String numberHex(std::uint64_t value, int width = 0, char fill = ' ');
    static String numberHEX(std::uint64_t value, int width = 0, char fill = ' ')
    {
        return numberHex(value, width, fill);
    }

    /// Converts UTF-16; unpaired surrogates become U+FFFD.
    static String fromUTF16(std::u16string_view text);

private:
    static constexpr std::size_t InlineCapacity = 15;
    static constexpr unsigned char SharedTag = 0xFF;

    struct Shared {
        char* text; // In a buffer that begins with its header, see string.cpp.
        std::uint32_t size;
    };

    static String concatenate(std::string_view a, std::string_view b);
    /// The 16 bytes of `_storage` as two numbers.
    struct Words {
        std::uint64_t first, second;
    };
    static_assert(std::endian::native == std::endian::little);
    Words words() const noexcept { return { load<std::uint64_t>(_storage), load<std::uint64_t>(_storage + 8) }; }
    Words bigEndianWords() const noexcept
    {
        const auto [first, second] = words();
        return { std::byteswap(first), std::byteswap(second) };
    }
    void setWords(Words words) noexcept { internal::storeWords(_storage, words.first, words.second); }
    template <typename Word> static std::uint64_t load(const char* from) noexcept
    {
        Word word;
        std::memcpy(&word, from, sizeof word);
        return word;
    }
    /// The words of a text of at most InlineCapacity bytes, put together from reads of a fixed size that may overlap.
    static Words inlineWords(const char* text, std::size_t size) noexcept
    {
        Words words { 0, static_cast<std::uint64_t>(InlineCapacity - size) << 56 };
        if (size > 8) {
            words.first = load<std::uint64_t>(text);
            words.second |= load<std::uint64_t>(text + size - 8) >> (8 * (16 - size));
        } else if (size >= 4) {
            const auto end = load<std::uint32_t>(text + size - 4);
            words.first = load<std::uint32_t>(text) | end << (8 * (size - 4));
        } else if (size > 0) {
            words.first = load<std::uint8_t>(text) | load<std::uint8_t>(text + size / 2) << (8 * (size / 2))
                | load<std::uint8_t>(text + size - 1) << (8 * (size - 1));
        }
        return words;
    }
    unsigned char tag() const noexcept { return static_cast<unsigned char>(_storage[InlineCapacity]); }
    bool isInline() const noexcept { return tag() != SharedTag; }
    Shared shared() const noexcept
    {
        Shared result;
        std::memcpy(&result.text, _storage, sizeof result.text);
        std::memcpy(&result.size, _storage + sizeof result.text, sizeof result.size);
        return result;
    }
    void setShared(Shared shared) noexcept;
    void setInlineSize(std::size_t size) noexcept
    {
        _storage[InlineCapacity] = static_cast<char>(InlineCapacity - size);
    }
    void makeEmpty() noexcept { setWords(inlineWords(nullptr, 0)); }
    void setLongText(std::string_view text); // For a string that has no content yet.
    char* makeRoom(std::size_t size); // For an empty string: gives it `size` bytes, not yet set.
    void retain() noexcept;
    void release() noexcept;

    // A text of up to 15 bytes is stored here; the last byte is 15 - size, which is 0 and so terminates a text of 15. For a longer
    // text: a pointer to the shared text, the size in 32 bits, and 0xFF in the last byte.
    alignas(8) char _storage[16];
};

} // namespace fn

template <> struct std::hash<fn::String> {
    std::size_t operator()(const fn::String& text) const noexcept { return std::hash<std::string_view>()(text.view()); }
};

template <> struct fmt::formatter<fn::String> : fmt::formatter<fmt::string_view> {
    template <typename Context> auto format(const fn::String& text, Context& context) const
    {
        return fmt::formatter<fmt::string_view>::format(fmt::string_view(text.data(), text.size()), context);
    }
};
