#pragma once
#include "base/export.h"

namespace platform {

constexpr int _O_NOINHERIT = 0x80; // NOLINT(bugprone-reserved-identifier): their name.

/// Makes a pipe: `descriptors[0]` is its read end, `descriptors[1]` its write end. With `_O_NOINHERIT`, the one bit of
/// `mode` that is known here, programs started from this process get neither. `size` is a wish for the bytes that the pipe
/// holds; this system gives every pipe its own size. Returns 0, or -1 with `errno`. Thread-safe.
FN_EXPORT int _pipe(int* descriptors, unsigned size, int mode);

} // namespace platform
