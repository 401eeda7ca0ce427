#pragma once

namespace fn {

/// Ways to write a date. Names are English in every locale; seconds are whole, rounded down.
enum class DateTimeFormat {
    RFC1123_FORMAT, ///< "Thu, 01 Jan 1970 00:00:00 GMT", another zone as "+0100".
    SORTABLE_FORMAT, ///< "1970-01-01 00:00:00". Years outside 0 to 9999 do not sort.
};

} // namespace fn
