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

/// How a failure of a call is logged: as a warning; what the end of a worker explains, as at the end of the application, is
/// nothing that people need to see.
FN_EXPORT int logPriority(std::exception_ptr failure);

} // namespace media
