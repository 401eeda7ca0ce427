#pragma once
#include "base/string.h"
#include "platform/com/com.h"

namespace platform {

/// Asks the user whether this program may act as an administrator. `action` completes "... wants to". Called on the thread
/// that asks for elevation, which waits. An exception counts as a failure.
using ElevationPrompt = std::function<bool(const fn::String& action)>;

/// The prompt that `CoGetObject()` calls. A program installs a prompt in `main()`. Without one, elevation is refused, with a line
/// on standard error that says so.
///
/// Elevation here is only the question: the rights of the process stay as they are.
using ScopedElevationPrompt = ScopedOverride<CoGetObject, ElevationPrompt>;
extern template class FN_EXPORT ScopedOverride<CoGetObject, ElevationPrompt>;

} // namespace platform
