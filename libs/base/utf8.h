#pragma once
#include "base/export.h"
#include <cstddef>
#include <string_view>

namespace fn {

/// Whether all of a text is UTF-8, which has no overlong forms and no surrogates.
FN_EXPORT bool isUTF8(std::string_view text) noexcept;

/// The beginning of a text, at most `mostBytes` long. Up to three bytes less are taken, so that the beginning ends between two
/// characters; only a text that is not UTF-8 is cut inside a character.
FN_EXPORT std::string_view cutText(std::string_view text, std::size_t mostBytes) noexcept;

} // namespace fn
