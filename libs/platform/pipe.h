#pragma once
#include "base/export.h"

namespace platform {

constexpr int _O_NOINHERIT = 0x80; // NOLINT(bugprone-reserved-identifier): their name.

/// Makes a pipe: `descriptors[0]` is its read end, `descriptors[1]` its write end. With `_O_NOINHERIT`, the one bit of
/// `mode` that is known here, programs that this process starts inherit neither end. `size` asks for the bytes that the pipe
/// holds, and is ignored: the system decides. Returns 0, or -1 with `errno`. Thread-safe.
FN_EXPORT int _pipe(int* descriptors, unsigned size, int mode);

} // namespace platform
