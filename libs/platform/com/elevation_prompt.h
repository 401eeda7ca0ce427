#pragma once
#include "foundation/string.h"
#include <functional>

namespace platform {

/// Asks the user whether this program may act as an administrator. `action` completes "... wants to". Called on the thread
/// that wants it, which waits. An exception counts as a failure.
using ElevationPrompt = std::function<bool(const fn::String& action)>;

/// `CoGetObject()` asks `prompt` while this lives; nested ones end in reverse order. A program installs one in `main()`. Without
/// any, elevation is refused, with a line on standard error that says so.
///
/// Elevation here means that the layer's own objects accept changes; the process gets no other rights.
class FN_EXPORT ScopedElevationPrompt {
public:
    explicit ScopedElevationPrompt(ElevationPrompt prompt);
    ScopedElevationPrompt(const ScopedElevationPrompt&) = delete;
    ScopedElevationPrompt& operator=(const ScopedElevationPrompt&) = delete;
    ~ScopedElevationPrompt();

private:
    ElevationPrompt _previous;
};

} // namespace platform
