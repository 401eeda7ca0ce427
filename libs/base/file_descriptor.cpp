#include "base/file_descriptor.h"
#include "base/posix.h"
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace fn {

FileDescriptor::FileDescriptor(int descriptor, String path) noexcept : _descriptor(descriptor), _path(std::move(path))
{
}

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept
    : _descriptor(other.release()),
      _path(std::move(other._path))
{
}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept
{
    if (this == &other) return *this;
    if (_descriptor >= 0) ::close(_descriptor);
    _descriptor = other.release();
    _path = std::move(other._path);
    return *this;
}

FileDescriptor::~FileDescriptor()
{
    if (_descriptor >= 0) ::close(_descriptor);
}

FileDescriptor FileDescriptor::read(const String& path)
{
    FileDescriptor result(posix::open(path, O_RDONLY), path);
    if (!result) posix::throwErrno(path);
    return result;
}

FileDescriptor FileDescriptor::readRegular(const String& path)
{
    FileDescriptor result(posix::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY), path);
    struct stat status = {};
    if (!result || ::fstat(result.get(), &status) != 0) posix::throwErrno(path);
    if (!S_ISREG(status.st_mode)) posix::throwErrno(path, S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    return result;
}

FileDescriptor FileDescriptor::write(const String& path, int mode)
{
    FileDescriptor result(posix::open(path, O_WRONLY | O_CREAT | O_TRUNC, mode), path);
    if (!result) posix::throwErrno(path);
    return result;
}

int FileDescriptor::release() noexcept { return std::exchange(_descriptor, -1); }

void FileDescriptor::sync()
{
    if (posix::uninterrupted([&] { return ::fsync(_descriptor); }) != 0) posix::throwErrno(_path);
}

void FileDescriptor::close()
{
    if (_descriptor < 0) return;
    // Linux has freed the descriptor even if close() was interrupted: a second try could close the descriptor of another thread.
    if (::close(release()) != 0 && errno != EINTR) posix::throwErrno(_path);
}

} // namespace fn
