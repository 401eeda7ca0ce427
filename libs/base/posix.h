#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include <cerrno>
#include <cstddef>

/// Calls of the operating system, each tried again when a signal interrupts it. They report failure as the system does:
/// a negative result and `errno`.
namespace fn::posix {

/// A descriptor that programs started from here do not inherit, or -1. A path that holds a NUL byte is EINVAL.
FN_EXPORT int open(const String& path, int flags, int mode = 0);

FN_EXPORT std::ptrdiff_t read(int descriptor, void* data, std::size_t size);
FN_EXPORT std::ptrdiff_t write(int descriptor, const void* data, std::size_t size); ///< May write less.

/// What the system says of a failure on the file `path`: `fn::FileException` with the path and the errno.
[[noreturn]] FN_EXPORT void throwErrno(const String& path, int error = errno);

} // namespace fn::posix
