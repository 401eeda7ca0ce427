#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include <cerrno>
#include <cstddef>

/// Calls of the operating system, each repeated while a signal interrupts it. These calls report failure as the system does, by
/// a negative result and `errno`.
namespace fn::posix {

/// Makes a call of the system again for as long as signals interrupt it.
template <typename Call> auto uninterrupted(Call&& call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

/// Opens a file. Programs that this process starts do not inherit the descriptor. A path with a NUL byte fails with EINVAL.
FN_EXPORT int open(const String& path, int flags, int mode = 0);

/// `::read`, begun anew where a signal has interrupted it.
FN_EXPORT std::ptrdiff_t read(int descriptor, void* data, std::size_t size);
FN_EXPORT std::ptrdiff_t write(int descriptor, const void* data, std::size_t size); ///< May write less than `size`.

/// Throws `fn::FileException` with the system's text for the failure, the path and the errno.
[[noreturn]] FN_EXPORT void throwErrno(const String& path, int error = errno);

/// Throws the `fn::IOException` `message` with the errno.
[[noreturn]] FN_EXPORT void fail(const String& message, int error = errno);

} // namespace fn::posix
