#include "foundation/time/date_time_parser.h"
#include "base/exceptions.h"
#include "foundation/time/detail/english_names.h"
#include <algorithm>
#include <charconv>

namespace fn {
namespace {

// Timestamps end in the years -290308 and 294247: six digits.
constexpr std::size_t mostYearDigits = 6;

// The rest of the text to read. Each `take...()` takes a piece from the front of the rest, or throws.
class Cursor {
public:
    explicit Cursor(std::string_view text) : _text(text), _rest(text) { }

    bool tryTake(std::string_view literal)
    {
        if (!_rest.starts_with(literal)) return false;
        _rest.remove_prefix(literal.size());
        return true;
    }

    void take(std::string_view literal)
    {
        if (!tryTake(literal)) fail();
    }

    int takeNumber(std::size_t leastDigits, std::size_t mostDigits)
    {
        const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
        const auto end = std::find_if_not(_rest.begin(), _rest.begin() + std::min(mostDigits, _rest.size()), isDigit);
        const auto digits = static_cast<std::size_t>(end - _rest.begin());
        if (digits < leastDigits) fail();
        int result = 0;
        std::from_chars(_rest.begin(), end, result);
        _rest.remove_prefix(digits);
        return result;
    }

    // Takes one of the names, which all have one length, and returns its index.
    template <typename Names> int takeName(const Names& names)
    {
        const auto found = std::ranges::find(names, _rest.substr(0, names[0].size()));
        if (found == names.end()) fail();
        _rest.remove_prefix(found->size());
        return static_cast<int>(found - names.begin());
    }

    int takeYear()
    {
        const bool negative = tryTake("-");
        const int year = takeNumber(4, mostYearDigits);
        return negative ? -year : year;
    }

    bool startsWithDigit() const { return !_rest.empty() && _rest[0] >= '0' && _rest[0] <= '9'; }
    void takeEnd()
    {
        if (!_rest.empty()) fail();
    }

    [[noreturn]] void fail() const
    {
        constexpr std::size_t mostBytesShown = 64;
        throw with(DataFormatException("Text is no date of the expected form"),
            DetailInfo { "Text: " + String(_text.substr(0, mostBytesShown)) });
    }

private:
    std::string_view _text;
    std::string_view _rest;
};

int takeZone(Cursor& cursor)
{
    for (const auto* name : { "GMT", "UTC", "UT" }) {
        if (cursor.tryTake(name)) return 0;
    }
    const bool behind = cursor.tryTake("-");
    if (!behind) cursor.take("+");
    const int hours = cursor.takeNumber(2, 2);
    const int minutes = cursor.takeNumber(2, 2);
    if (hours > 23 || minutes > 59) cursor.fail();
    return (behind ? -1 : 1) * (hours * 60 + minutes) * 60;
}

DateTime takeRFC1123(Cursor& cursor, int& timeZoneDifferential)
{
    if (!cursor.startsWithDigit()) {
        cursor.takeName(internal::dayNames);
        cursor.take(", ");
    }
    const int day = cursor.takeNumber(1, 2);
    cursor.take(" ");
    const int month = cursor.takeName(internal::monthNames) + 1;
    cursor.take(" ");
    const int year = cursor.takeYear();
    cursor.take(" ");
    const int hour = cursor.takeNumber(2, 2);
    cursor.take(":");
    const int minute = cursor.takeNumber(2, 2);
    const int second = cursor.tryTake(":") ? cursor.takeNumber(2, 2) : 0;
    cursor.take(" ");
    timeZoneDifferential = takeZone(cursor);
    cursor.takeEnd();
    return DateTime(year, month, day, hour, minute, second);
}

DateTime takeSortable(Cursor& cursor, int& timeZoneDifferential)
{
    const int year = cursor.takeYear();
    cursor.take("-");
    const int month = cursor.takeNumber(2, 2);
    cursor.take("-");
    const int day = cursor.takeNumber(2, 2);
    cursor.take(" ");
    const int hour = cursor.takeNumber(2, 2);
    cursor.take(":");
    const int minute = cursor.takeNumber(2, 2);
    cursor.take(":");
    const int second = cursor.takeNumber(2, 2);
    cursor.takeEnd();
    timeZoneDifferential = 0;
    return DateTime(year, month, day, hour, minute, second);
}

} // namespace

DateTime DateTimeParser::parse(const String& text, DateTimeFormat format, int& timeZoneDifferential)
{
    Cursor cursor(text);
    try {
        return format == DateTimeFormat::RFC1123_FORMAT ? takeRFC1123(cursor, timeZoneDifferential)
                                                        : takeSortable(cursor, timeZoneDifferential);
    } catch (const RangeException&) { // Well formed, but no date, such as 31 February.
        cursor.fail();
    }
}

} // namespace fn
