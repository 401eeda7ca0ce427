#include "base/posix.h"
#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace fn::posix {

int open(const String& path, int flags, int mode)
{
    // The system would stop at the NUL and open another file.
    if (path.contains(std::string_view("\0", 1))) {
        errno = EINVAL;
        return -1;
    }
    int descriptor = -1;
    do descriptor = ::open(path.c_str(), flags | O_CLOEXEC, mode);
    while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

std::ptrdiff_t read(int descriptor, void* data, std::size_t size)
{
    std::ptrdiff_t count = -1;
    do count = ::read(descriptor, data, size);
    while (count < 0 && errno == EINTR);
    return count;
}

std::ptrdiff_t write(int descriptor, const void* data, std::size_t size)
{
    std::ptrdiff_t count = -1;
    do count = ::write(descriptor, data, size);
    while (count < 0 && errno == EINTR);
    return count;
}

void throwErrno(const String& path, int error)
{
    throw with(FileException(std::generic_category().message(error)), PathInfo { path }, ErrnoInfo { error });
}

} // namespace fn::posix
