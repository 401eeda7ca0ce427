#include "foundation/system/named_mutex.h"
#include "base/exceptions.h"
#include "base/posix.h"
#include "foundation/io/file.h"
#include "platform/pipe_path.h"
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace fn {
namespace {

constexpr int onlyOwner = 0600;

bool tryLock(const FileDescriptor& file)
{
    while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) return false;
        if (errno != EINTR) File::handleErrno(file.path());
    }
    return true;
}

/// Whether the locked file still has its name. If somebody has removed it before it was locked, another process could lock a new one.
bool hasItsName(const FileDescriptor& file)
{
    struct stat locked, named;
    if (::fstat(file.get(), &locked) != 0) File::handleErrno(file.path());
    return ::lstat(file.path().c_str(), &named) == 0 && named.st_dev == locked.st_dev && named.st_ino == locked.st_ino;
}

} // namespace

NamedMutex::NamedMutex(const String& name, bool exclusive)
{
    const auto path = platform::privatePath(name + ".lock"); // A pipe NAME has another path.
    if (!exclusive) return;
    do {
        _lock = FileDescriptor(posix::open(path, O_RDWR | O_CREAT | O_NOFOLLOW, onlyOwner), path);
        if (!_lock) File::handleErrno(path);
        if (!tryLock(_lock))
            throw with(NamedMutexAlreadyExistsException("The name is taken"), DetailInfo { "Name: " + name });
    } while (!hasItsName(_lock));
}

// The file stays: removing it behind the end of the lock could take it from a process that has just locked it.
NamedMutex::~NamedMutex() = default;

} // namespace fn
