#pragma once
#include "base/export.h"
#include <cstddef>
#include <string_view>

namespace fn {

/// Whether a text is UTF-8 from end to end. Overlong forms and surrogates are not.
FN_EXPORT bool isUTF8(std::string_view text) noexcept;

/// The beginning of a text, at most `mostBytes` long. Up to three bytes less are taken so that it ends between two characters;
/// a text in which that is not enough is not UTF-8.
FN_EXPORT std::string_view cutText(std::string_view text, std::size_t mostBytes) noexcept;

} // namespace fn
