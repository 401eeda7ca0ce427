#pragma once
#include "base/exceptions.h"
#include "core/services/logging_profile/logging_profile.h"
#include "foundation/io/input_stream.h"

namespace core {

/// The most bytes of a profile; a longer file gives `fn::RangeException`.
inline constexpr std::size_t loggingProfileBytes = 1 << 20;

/// Applies the lines of a profile file to `profile` (docs/logging.md), and skips lines that are no settings. A later line
/// replaces the setting of an earlier one, or adds to its list.
void readLoggingProfile(fn::InputStream& stream, LoggingProfile& profile);

} // namespace core
