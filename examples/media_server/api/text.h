#pragma once
#include "base/export.h"
#include "base/string.h"
#include <exception>

namespace media {

/// A path, or other text from outside, as a terminal may show it: what does not print, and bytes that are not UTF-8, are
/// written as \xNN.
FN_EXPORT std::string printable(std::string_view text);

/// What a failure says to people: its message and the file concerned, printable.
FN_EXPORT std::string describe(std::exception_ptr failure);

/// Whether lines that this descriptor shows may be drawn over again: it is a terminal, and no dumb one.
FN_EXPORT bool isTerminal(int descriptor);

inline constexpr const char* eraseLine = "\r\033[K"; ///< On such a terminal: what the line shows is gone.

} // namespace media
