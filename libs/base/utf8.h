#pragma once
#include "base/export.h"
#include <cstddef>
#include <string_view>

namespace fn {

/// Whether a text is UTF-8 from end to end. Overlong forms and surrogates are not.
FN_EXPORT bool isUTF8(std::string_view text) noexcept;

/// The beginning of a text, of at most `mostBytes`. It ends where a character does, unless that would take more than three
/// bytes away: the text is no UTF-8 then.
FN_EXPORT std::string_view cutText(std::string_view text, std::size_t mostBytes) noexcept;

} // namespace fn
