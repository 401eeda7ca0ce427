#include "foundation/system/named_mutex.h"
#include "foundation/exceptions.h"
#include "foundation/io/file.h"
#include "foundation/io/posix.h"
#include "platform/pipe_path.h"
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>

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

} // namespace

NamedMutex::NamedMutex(const String& name, bool exclusive)
{
    const auto path = platform::privatePath(name + ".lock"); // Apart from a pipe of the same name.
    if (!exclusive) return;
    FileDescriptor file(posix::open(path, O_RDWR | O_CREAT | O_NOFOLLOW, onlyOwner), path);
    if (!file) File::handleErrno(path);
    if (!tryLock(file))
        throw with(NamedMutexAlreadyExistsException("The name is taken"), DetailInfo { "Name: " + name });
    _lock = std::move(file);
}

// The file stays: whoever has opened it and waits to lock it would hold another one than who makes it anew.
NamedMutex::~NamedMutex() = default;

} // namespace fn
