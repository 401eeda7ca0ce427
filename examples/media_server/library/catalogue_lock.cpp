#include "library/catalogue_lock.h"
#include "base/posix.h"
#include "foundation/io/file.h"
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>

namespace media {

CatalogueLock::CatalogueLock(const fn::String& path) : _file(fn::posix::open(path, O_RDWR | O_CREAT, 0600), path)
{
    if (!_file) fn::File::handleErrno(path);
}

bool CatalogueLock::tryLock()
{
    if (::flock(_file.get(), LOCK_EX | LOCK_NB) == 0) return true;
    if (errno != EWOULDBLOCK) fn::File::handleErrno(_file.path());
    return false;
}

} // namespace media
