#include "foundation/io/file.h"
#include "base/exceptions.h"
#include "base/posix.h"
#include "platform/pipe_path.h"
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>

namespace fn {
namespace {

// The path for the system calls, of a path or a pipe name.
String systemPath(const String& path)
{
    if (platform::isPipeName(path)) return platform::pipePath(path);
    if (path.contains(std::string_view("\0", 1))) File::handleErrno(path, EINVAL); // The system would stop at the NUL.
    return path;
}

FileKind kindOfMode(unsigned mode)
{
    switch (mode & S_IFMT) {
    case S_IFREG: return FileKind::Regular;
    case S_IFDIR: return FileKind::Directory;
    case S_IFLNK: return FileKind::Link;
    case S_IFSOCK: return FileKind::Socket;
    case S_IFIFO: return FileKind::Pipe;
    default: return FileKind::Other;
    }
}

Timestamp toTimestamp(const statx_timestamp& time)
{
    // File systems hold times far beyond what a timestamp can hold, and anybody may set such a time.
    const auto whole = std::min(Duration::seconds(time.tv_sec), Duration(INT64_MAX - 999'999));
    return Timestamp(whole + Duration::microseconds(time.tv_nsec / 1000));
}

} // namespace

File::File(String path) : _path(std::move(path)) { }

bool File::exists(Links links) const
{
    struct stat status;
    const auto path = systemPath(_path);
    const auto code = links == Links::Keep ? ::lstat(path.c_str(), &status) : ::stat(path.c_str(), &status);
    if (code == 0) return true;
    if (errno == ENOENT || errno == ENOTDIR) return false;
    handleErrno(_path);
}

FileInfo File::info(Links links) const
{
    struct statx status;
    const int flags = links == Links::Keep ? AT_SYMLINK_NOFOLLOW : 0;
    const unsigned wanted = STATX_BASIC_STATS | STATX_BTIME;
    if (::statx(AT_FDCWD, systemPath(_path).c_str(), flags, wanted, &status) != 0) handleErrno(_path);

    FileInfo result;
    result.size = status.stx_size;
    result.kind = kindOfMode(status.stx_mode);
    result.created = toTimestamp(status.stx_mask & STATX_BTIME ? status.stx_btime : status.stx_ctime);
    result.modified = toTimestamp(status.stx_mtime);
    result.mode = status.stx_mode & 07777;
    result.inode = status.stx_ino;
    return result;
}

void File::remove(bool recursive) const
{
    const auto path = systemPath(_path);
    if (!recursive) {
        if (std::remove(path.c_str()) != 0) handleErrno(_path);
        return;
    }
    std::error_code error;
    const auto count = std::filesystem::remove_all(path.toStdString(), error);
    if (error) handleErrno(_path, error.value());
    if (count == 0) handleErrno(_path, ENOENT);
}

void File::moveTo(const String& path) const
{
    if (::rename(systemPath(_path).c_str(), systemPath(path).c_str()) != 0) handleErrno(_path);
}

void File::handleErrno(const String& path) { handleErrno(path, errno); }

void File::handleErrno(const String& path, int error) { posix::throwErrno(path, error); }

} // namespace fn
