#pragma once
#include "base/string.h"
#include "platform/com/com.h"

namespace platform {

/// Asks the user whether this program may act as an administrator. `action` completes "... wants to". Called on the thread
/// that wants it, which waits. An exception counts as a failure.
using ElevationPrompt = std::function<bool(const fn::String& action)>;

/// Whom `CoGetObject()` asks. A program installs one in `main()`. Without any, elevation is refused, with a line on standard
/// error that says so.
///
/// Elevation here is the question alone: what the process may do stays as it is.
using ScopedElevationPrompt = ScopedOverride<CoGetObject, ElevationPrompt>;
extern template class FN_EXPORT ScopedOverride<CoGetObject, ElevationPrompt>;

} // namespace platform
