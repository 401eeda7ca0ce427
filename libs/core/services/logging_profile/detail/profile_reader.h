#pragma once
#include "base/exceptions.h"
#include "core/services/logging_profile/logging_profile.h"
#include "foundation/io/input_stream.h"

namespace core {

/// A profile longer than this is none: `fn::RangeException`.
inline constexpr std::size_t loggingProfileBytes = 1 << 20;

/// Sets in `profile` what the lines of a profile file say (docs/logging.md); what is no setting is skipped. A later line
/// replaces what an earlier one set, and adds to lists.
void readLoggingProfile(fn::InputStream& stream, LoggingProfile& profile);

} // namespace core
