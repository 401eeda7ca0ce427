#include "base/posix.h"
#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace fn::posix {

int open(const String& path, int flags, int mode)
{
    // The system would take the path up to the NUL and open another file.
    if (path.contains(std::string_view("\0", 1))) {
        errno = EINVAL;
        return -1;
    }
    return uninterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); });
}

std::ptrdiff_t read(int descriptor, void* data, std::size_t size)
{
    return uninterrupted([&] { return ::read(descriptor, data, size); });
}

std::ptrdiff_t write(int descriptor, const void* data, std::size_t size)
{
    return uninterrupted([&] { return ::write(descriptor, data, size); });
}

void throwErrno(const String& path, int error)
{
    throw with(FileException(std::generic_category().message(error)), PathInfo { path }, ErrnoInfo { error });
}

void fail(const String& message, int error) { throw with(IOException(message), ErrnoInfo { error }); }

} // namespace fn::posix
