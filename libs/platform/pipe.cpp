#include "platform/pipe.h"
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace platform {

int _pipe(int* descriptors, unsigned, int mode)
{
    if (!descriptors || (mode & ~_O_NOINHERIT) != 0) {
        errno = EINVAL;
        return -1;
    }
    return ::pipe2(descriptors, mode & _O_NOINHERIT ? O_CLOEXEC : 0);
}

} // namespace platform
