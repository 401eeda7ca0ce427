#pragma once
#include "base/export.h"
#include "base/string.h"
#include <exception>

namespace media {

/// A path, or other text from outside, in a form that a terminal may show: characters that do not print, and bytes that are not
/// UTF-8, become \xNN.
FN_EXPORT std::string printable(std::string_view text);

/// The text of a failure for people: its message and the file concerned, printable.
FN_EXPORT std::string describe(std::exception_ptr failure);

/// Whether this descriptor is a terminal that can draw a line again, and no "dumb" one.
FN_EXPORT bool isTerminal(int descriptor);

inline constexpr const char* eraseLine = "\r\033[K"; ///< Erases the line on such a terminal.

} // namespace media
